#include "platform/linux/LazyMediaExport.h"

#include <cmath>

#include "platform/linux/MediaModule.h"

namespace velqor {

std::shared_ptr<MediaExport> LazyMediaExport::exporter() {
  std::lock_guard lock(mutex_);
  if (!exporter_)
    if (auto stack = MediaModule::stack(); stack.ok()) exporter_ = (*stack)->makeExport();
  return exporter_;
}

double LazyMediaExport::assetDuration(const Url& asset) {
  auto e = exporter();
  return e ? e->assetDuration(asset) : std::nan("");
}

std::shared_ptr<ExportSession> LazyMediaExport::makeSession(const Url& asset, const std::string& preset) {
  auto e = exporter();
  return e ? e->makeSession(asset, preset) : nullptr;
}

bool LazyMediaExport::idle() const {
  std::lock_guard lock(mutex_);
  return !exporter_ || exporter_->idle();
}

}  // namespace velqor
