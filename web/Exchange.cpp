#include "web/Exchange.h"

#include <fcntl.h>
#include <microhttpd.h>
#include <unistd.h>

#include <cstring>

#include "host/FileBytes.h"

namespace velqor {
namespace {

constexpr size_t kFormBuffer = 64 * 1024;
constexpr size_t kMaxFieldBytes = 64;

MHD_Result formIterator(void* self, MHD_ValueKind, const char* key, const char* filename, const char*, const char*,
                        const char* data, uint64_t, size_t size) {
  return static_cast<Exchange*>(self)->formPart(key, filename, data, size) ? MHD_YES : MHD_NO;
}

}  // namespace

Exchange::Exchange(RequestGuard::Route route, BufferBudget& budget, std::string uploadsFolder)
    : route_(route), budget_(budget), uploadsFolder_(std::move(uploadsFolder)) {}

Exchange::~Exchange() {
  if (form_) MHD_destroy_post_processor(form_);
  budget_.giveBack(taken_);
  if (!uploadPath_.empty()) ::unlink(uploadPath_.c_str());
}

std::optional<RequestGuard::Refusal> Exchange::startForm(MHD_Connection* connection) {
  form_ = MHD_create_post_processor(connection, kFormBuffer, &formIterator, this);
  if (!form_) return RequestGuard::Refusal{400, "the multipart form data has no usable boundary"};
  return std::nullopt;
}

std::optional<RequestGuard::Refusal> Exchange::consume(const char* data, size_t size) {
  received_ += size;
  if (received_ > route_.maxBody)
    return RequestGuard::Refusal{413, "the request body is too large: the limit of this route is " +
                                          std::to_string(route_.maxBody) + " bytes"};
  switch (route_.body) {
    case RequestGuard::Body::none:
      return RequestGuard::Refusal{413, "this route takes no body"};
    case RequestGuard::Body::json:
    case RequestGuard::Body::imageBytes:
      if (!budget_.take(size)) return RequestGuard::Refusal{503, "the server holds too many request bodies; retry"};
      taken_ += size;
      body_.append(data, size);
      return std::nullopt;
    case RequestGuard::Body::multipart:
      if (MHD_post_process(form_, data, size) != MHD_YES)
        return formError_ ? formError_ : RequestGuard::Refusal{400, "the multipart form data is malformed"};
      return std::nullopt;
  }
  return std::nullopt;
}

bool Exchange::formPart(const char* key, const char* filename, const char* data, size_t size) {
  const std::string name = key ? key : "";
  if (name == "file") {
    if (uploadName_.empty()) uploadName_ = filename && *filename ? filename : "upload";
    formError_ = writeUpload(data, size);
    return !formError_;
  }
  std::string* field = name == "kind" ? &kind_ : name == "edit" ? &edit_ : nullptr;
  if (!field) return true;  // other fields are ignored, their bytes still count
  if (field->size() + size > kMaxFieldBytes) {
    formError_ = RequestGuard::Refusal{400, "the field \"" + name + "\" is too long"};
    return false;
  }
  field->append(data, size);
  return true;
}

std::optional<RequestGuard::Refusal> Exchange::writeUpload(const char* data, size_t size) {
  if (!uploadFd_.valid()) {
    if (!uploadPath_.empty()) return RequestGuard::Refusal{400, "send one \"file\" per request"};
    std::string pattern = uploadsFolder_ + "/upload-XXXXXX";
    uploadFd_ = UniqueFd(::mkostemp(pattern.data(), O_CLOEXEC));
    if (!uploadFd_.valid())
      return RequestGuard::Refusal{503, std::string("cannot store the upload: ") + std::strerror(errno)};
    uploadPath_ = pattern;
  }
  if (int err = FileBytes::writeAll(uploadFd_.get(), std::span(reinterpret_cast<const std::uint8_t*>(data), size)))
    return RequestGuard::Refusal{503, std::string("cannot store the upload: ") + std::strerror(err)};
  return std::nullopt;
}

std::string Exchange::takeUpload() {
  uploadFd_ = UniqueFd();
  return std::exchange(uploadPath_, std::string());
}

const std::string& Exchange::field(const std::string& name) const {
  static const std::string kNone;
  return name == "kind" ? kind_ : name == "edit" ? edit_ : kNone;
}

}  // namespace velqor
