#include "host/CallBackManager.h"

namespace velqor {

void CallBackManager::send(Answer answer) {
  answer.callbackId = command_->callbackId();
  log_->record(std::move(answer));
}

void CallBackManager::success(bool keepCallback) {
  Answer a;
  a.keepCallback = keepCallback;
  send(std::move(a));
}

void CallBackManager::success(const Dictionary& data, bool keepCallback) {
  Answer a;
  a.payload = data;
  a.keepCallback = keepCallback;
  send(std::move(a));
}

void CallBackManager::error(CommandStatus status, const std::string& message, bool keepCallback) {
  Answer a;
  a.status = status;
  a.payload = message;
  a.keepCallback = keepCallback;
  send(std::move(a));
}

void CallBackManager::error(CommandStatus status, const Dictionary& payload, bool keepCallback) {
  Answer a;
  a.status = status;
  a.payload = payload;
  a.keepCallback = keepCallback;
  send(std::move(a));
}

}  // namespace velqor
