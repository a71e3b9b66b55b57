#pragma once

#include <optional>
#include <string>

#include "host/UniqueFd.h"
#include "web/BufferBudget.h"
#include "web/RequestGuard.h"

struct MHD_Connection;
struct MHD_PostProcessor;

namespace velqor {

// One request while its body arrives: a JSON or image body is kept in memory
// (within the route's limit and the server's buffer budget); a multipart
// upload streams its "file" part into a new file of the uploads folder and
// keeps its small fields. Every byte counts against the route's limit as it
// arrives (a Content-Length is only a claim). An upload nobody took is removed with the
// exchange.
//
// Threads: the connection's thread only.
class Exchange {
 public:
  Exchange(RequestGuard::Route route, BufferBudget& budget, std::string uploadsFolder);
  ~Exchange();
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  // For a multipart route: starts the form reader. A refusal when the form's
  // boundary is missing.
  std::optional<RequestGuard::Refusal> startForm(MHD_Connection* connection);
  // The next piece of the body; a refusal ends the request.
  std::optional<RequestGuard::Refusal> consume(const char* data, size_t size);

  const RequestGuard::Route& route() const { return route_; }
  const std::string& body() const { return body_; }
  // The uploaded file's path, or empty; once taken it is the taker's to remove.
  std::string takeUpload();
  const std::string& uploadName() const { return uploadName_; }
  const std::string& field(const std::string& name) const;
  bool refused = false;  // a refusal was sent: the rest of the body is ignored

  // One piece of a form part, as the form reader hands it over; false stops it.
  bool formPart(const char* key, const char* filename, const char* data, size_t size);

 private:
  std::optional<RequestGuard::Refusal> writeUpload(const char* data, size_t size);

  RequestGuard::Route route_;
  BufferBudget& budget_;
  std::string uploadsFolder_;
  size_t received_ = 0;
  size_t taken_ = 0;  // from the budget
  std::string body_;
  MHD_PostProcessor* form_ = nullptr;
  UniqueFd uploadFd_;
  std::string uploadPath_, uploadName_, kind_, edit_;
  std::optional<RequestGuard::Refusal> formError_;
};

}  // namespace velqor
