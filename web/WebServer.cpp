#include "web/WebServer.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>
#include <algorithm>
#include <cstring>
#include <map>

#include "host/FileBytes.h"
#include "host/JsonReader.h"
#include "web/Exchange.h"

namespace velqor {
namespace {

using Json = nlohmann::json;
constexpr auto kMainQueueWait = std::chrono::seconds(30);
constexpr unsigned kIdleSeconds = 10;  // the daemon's own inactivity limit, also while answering
constexpr const char* kPageSecurityPolicy =
    "default-src 'self'; img-src 'self' data: blob:; media-src 'self' data: blob:; "
    "connect-src 'self' data: blob:; object-src 'none'; base-uri 'none'; frame-ancestors 'none'";

int httpStatusOf(const Status& status) {
  switch (status.code()) {
    case Status::Code::invalidArgument: return 400;
    case Status::Code::notFound: return 404;
    case Status::Code::failedPrecondition: return 409;
    case Status::Code::resourceExhausted: return 413;
    case Status::Code::unavailable: return 503;
    default: return 500;
  }
}

std::optional<std::string> header(MHD_Connection* c, const char* name) {
  const char* v = MHD_lookup_connection_value(c, MHD_HEADER_KIND, name);
  return v ? std::optional<std::string>(v) : std::nullopt;
}

size_t indexParam(MHD_Connection* c, const char* name) {
  const char* v = MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, name);
  const std::string s = v ? v : "";
  if (s.empty() || s.size() > 18 || !std::all_of(s.begin(), s.end(), ::isdigit)) return 0;
  return static_cast<size_t>(std::stoull(s));
}

RequestGuard::Head headOf(MHD_Connection* c, const char* method, const char* url) {
  RequestGuard::Head head;
  head.method = method;
  head.path = url;
  head.host = header(c, "Host");
  head.origin = header(c, "Origin");
  head.fetchSite = header(c, "Sec-Fetch-Site");
  head.customHeader = header(c, RequestGuard::kCustomHeader);
  head.contentType = header(c, "Content-Type");
  if (auto length = header(c, "Content-Length"); length && !length->empty() && length->size() <= 19 &&
                                                 std::all_of(length->begin(), length->end(), ::isdigit))
    head.contentLength = std::stoull(*length);
  head.headerCount = static_cast<size_t>(std::max(0, MHD_get_connection_values(c, MHD_HEADER_KIND, nullptr, nullptr)));
  return head;
}

MHD_Result onRequestEntry(void* server, MHD_Connection* c, const char* url, const char* method, const char*,
                          const char* upload, size_t* uploadSize, void** context) {
  return static_cast<WebServer*>(server)->onRequest(c, url, method, upload, uploadSize, context) ? MHD_YES : MHD_NO;
}

void onCompletedEntry(void* server, MHD_Connection* c, void** context, MHD_RequestTerminationCode) {
  static_cast<WebServer*>(server)->onCompleted(c, context);
}

void onConnectionEntry(void* server, MHD_Connection* c, void**, MHD_ConnectionNotificationCode code) {
  static_cast<WebServer*>(server)->onConnection(c, code == MHD_CONNECTION_NOTIFY_STARTED);
}

void quietLogger(void*, const char*, va_list) {}

}  // namespace

struct WebServer::Reply {
  int status = 200;
  std::string body;
  std::string type = "application/json";
  UniqueFd file;  // served instead of `body` when valid
  uint64_t fileSize = 0;
  bool page = false;

  static Reply json(const Json& body, int status = 200) {
    Reply r;
    r.status = status;
    r.body = body.dump(-1, ' ', false, Json::error_handler_t::replace);
    return r;
  }
  static Reply error(int status, const std::string& message) { return json(Json{{"error", message}}, status); }
  static Reply of(const StatusOr<Json>& result) {
    return result.ok() ? json(*result) : error(httpStatusOf(result.status()), result.status().message());
  }
};

WebServer::WebServer(Options options) : options_(std::move(options)), budget_(options_.maxBufferedBytes) {}

WebServer::~WebServer() { stop(); }

StatusOr<int> WebServer::bind() {
  if (options_.port < 0 || options_.port > 65535) return Status::invalidArgument("--port must be from 0 to 65535");
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_PASSIVE;
  addrinfo* found = nullptr;
  if (::getaddrinfo(options_.host.c_str(), std::to_string(options_.port).c_str(), &hints, &found) != 0 || !found)
    return Status::invalidArgument("--host must be a numeric address, got \"" + options_.host + "\"");
  std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
  UniqueFd fd(::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) return Status::unavailable(std::string("cannot open a socket: ") + std::strerror(errno));
  // SO_REUSEADDR only lets a restarted server take its port back from
  // TIME_WAIT; without SO_REUSEPORT a port another server listens on stays its own.
  const int one = 1;
  ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (::bind(fd.get(), found->ai_addr, found->ai_addrlen) != 0 || ::listen(fd.get(), 64) != 0) {
    const int err = errno;
    const std::string where = options_.host + ":" + std::to_string(options_.port);
    if (err == EADDRINUSE) return Status::unavailable("cannot listen on " + where + ": the port is already in use");
    return Status::unavailable("cannot listen on " + where + ": " + std::strerror(err));
  }
  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  ::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&bound), &length);
  port_ = ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port
                                            : reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
  listener_ = std::move(fd);
  guard_ = std::make_unique<RequestGuard>(
      options_.host, port_,
      RequestGuard::Limits{options_.maxJsonBytes, options_.maxUploadBytes, options_.maxImageBytes, options_.maxHeaders});
  return port_;
}

std::string WebServer::origin() const {
  const bool v6 = options_.host.find(':') != std::string::npos;
  return "http://" + (v6 ? "[" + options_.host + "]" : options_.host) + ":" + std::to_string(port_);
}

void WebServer::start(WebBridge& bridge, std::shared_ptr<Executor> mainQueue, ContainedFiles files) {
  bridge_ = &bridge;
  main_ = std::move(mainQueue);
  files_ = std::make_unique<ContainedFiles>(std::move(files));
  deadlines_ = std::make_unique<ConnectionDeadlines>(options_.headDeadline, options_.bodyDeadline);
  daemon_ = MHD_start_daemon(
      MHD_USE_THREAD_PER_CONNECTION | MHD_USE_AUTO_INTERNAL_THREAD | MHD_USE_ITC | MHD_USE_ERROR_LOG, 0, nullptr,
      nullptr, &onRequestEntry, this, MHD_OPTION_LISTEN_SOCKET, listener_.get(), MHD_OPTION_CONNECTION_LIMIT,
      options_.maxConnections, MHD_OPTION_PER_IP_CONNECTION_LIMIT, options_.maxConnectionsPerClient,
      MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
      options_.maxHeaderBytes * 2, MHD_OPTION_NOTIFY_COMPLETED, &onCompletedEntry, this,
      MHD_OPTION_NOTIFY_CONNECTION, &onConnectionEntry, this, MHD_OPTION_EXTERNAL_LOGGER, &quietLogger, nullptr,
      MHD_OPTION_END);
  if (daemon_) (void)listener_.release();  // the daemon closes it
}

void WebServer::stop() {
  {
    std::lock_guard lock(waits_->mutex);
    waits_->stopping = true;
  }
  waits_->done.notify_all();
  if (deadlines_) deadlines_->shutDownAll();
  if (daemon_) MHD_stop_daemon(std::exchange(daemon_, nullptr));
  deadlines_.reset();
}

Status WebServer::adopt(int fd) {
  UniqueFd owned(fd);
  if (!daemon_) return Status::failedPrecondition("the server is not started");
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (MHD_add_connection(daemon_, owned.get(), reinterpret_cast<sockaddr*>(&peer), sizeof peer) != MHD_YES)
    return Status::unavailable("the server did not take the connection");
  (void)owned.release();
  return Status::okStatus();
}

void WebServer::onConnection(MHD_Connection* c, bool opened) {
  if (!deadlines_) return;
  if (!opened) return deadlines_->closed(c);
  const auto* info = MHD_get_connection_info(c, MHD_CONNECTION_INFO_CONNECTION_FD);
  if (info) deadlines_->opened(c, info->connect_fd);
}

void WebServer::onCompleted(MHD_Connection* c, void** context) {
  delete static_cast<Exchange*>(std::exchange(*context, nullptr));
  deadlines_->answered(c);
}

int WebServer::onRequest(MHD_Connection* c, const char* url, const char* method, const char* upload,
                         size_t* uploadSize, void** context) {
  auto* exchange = static_cast<Exchange*>(*context);
  if (!exchange) {
    deadlines_->headReceived(c);
    const RequestGuard::Head head = headOf(c, method, url);
    const auto route = guard_->route(head.method, head.path);
    exchange = new Exchange(route.value_or(RequestGuard::Route{}), budget_, options_.uploadsDirectory);
    *context = exchange;
    auto refusal = guard_->check(head);
    if (!refusal && exchange->route().body == RequestGuard::Body::multipart) {
      refusal = options_.uploadsDirectory.empty()
                    ? std::optional<RequestGuard::Refusal>({503, "this server takes no uploads"})
                    : exchange->startForm(c);
    }
    if (refusal) {
      exchange->refused = true;
      return send(c, Reply::error(refusal->status, refusal->message));
    }
    return true;
  }
  if (exchange->refused) return false;  // the answer is out; the rest of the body is not read
  if (*uploadSize > 0) {
    auto refusal = exchange->consume(upload, *uploadSize);
    *uploadSize = 0;
    if (!refusal) return true;
    exchange->refused = true;
    // Mid-body the daemon can no longer answer; closing the connection refuses it.
    (void)send(c, Reply::error(refusal->status, refusal->message));
    return false;
  }
  deadlines_->answering(c);
  return send(c, answer(c, method, url, *exchange));
}

WebServer::Reply WebServer::answer(MHD_Connection* c, const std::string& method, const std::string& url,
                                   Exchange& exchange) {
  using Call = StatusOr<Json> (WebBridge::*)(const Json&);
  static const std::map<std::string, Call> kJsonCalls{{"/api/call", &WebBridge::call},
                                                      {"/api/picker/pick", &WebBridge::pickAsset},
                                                      {"/api/alert", &WebBridge::tapAlert},
                                                      {"/api/location", &WebBridge::deliverFix},
                                                      {"/api/device", &WebBridge::configureDevice}};
  static const std::map<std::string, std::pair<std::string, std::string>> kPage{
      {"/", {"index.html", "text/html; charset=utf-8"}},
      {"/app.js", {"app.js", "text/javascript; charset=utf-8"}},
      {"/camera.js", {"camera.js", "text/javascript; charset=utf-8"}},
      {"/exif.js", {"exif.js", "text/javascript; charset=utf-8"}},
      {"/screen.js", {"screen.js", "text/javascript; charset=utf-8"}},
      {"/style.css", {"style.css", "text/css; charset=utf-8"}}};
  if (method == "POST") {
    if (url == "/api/picker/file") return answerUpload(exchange);
    if (url == "/api/metadata") {
      if (exchange.body().empty()) return Reply::error(400, "send the image's bytes as the body");
      return Reply::json(WebBridge::metadataOf(exchange.body()));  // pure: no need for the main queue
    }
    auto body = JsonReader::parse(exchange.body().empty() && url == "/api/picker/cancel" ? "{}" : exchange.body(),
                                  "the request body", {.maxBytes = options_.maxJsonBytes, .maxDepth = 64});
    if (!body.ok()) return Reply::error(400, body.status().message());
    if (url == "/api/picker/cancel") return Reply::of(onMain([](WebBridge& b) { return b.cancelPicker(); }));
    const Call call = kJsonCalls.at(url);
    return Reply::of(onMain([call, body = std::move(*body)](WebBridge& b) { return (b.*call)(body); }));
  }
  if (auto page = kPage.find(url); page != kPage.end()) {
    auto bytes = FileBytes::read(options_.pageDirectory + "/" + page->second.first, 1 << 20);
    if (!bytes.ok()) return Reply::error(404, "the page is not installed: " + bytes.status().message());
    Reply r;
    r.body.assign(bytes->begin(), bytes->end());
    r.type = page->second.second;
    r.page = true;
    return r;
  }
  if (url == "/api/state") {
    const size_t answers = indexParam(c, "answers"), events = indexParam(c, "events");
    return Reply::of(onMain([answers, events](WebBridge& b) -> StatusOr<Json> { return b.state(answers, events); }));
  }
  if (url == "/api/library") return Reply::of(onMain([](WebBridge& b) { return b.library(); }));
  return answerFile(url.substr(std::strlen("/files")));
}

WebServer::Reply WebServer::answerUpload(Exchange& exchange) {
  const std::string kind = exchange.field("kind"), edit = exchange.field("edit"), name = exchange.uploadName();
  std::string path = exchange.takeUpload();
  if (path.empty() || kind.empty()) {
    if (!path.empty()) ::unlink(path.c_str());
    return Reply::error(400, "send multipart form data with \"file\" and \"kind\"");
  }
  // The bridge removes the file once the picker took it (or refused it).
  auto result = onMain([=](WebBridge& b) { return b.finishPickerWithUpload(kind, name, path, edit); });
  if (!result.ok() && result.status().code() == Status::Code::unavailable) ::unlink(path.c_str());
  return Reply::of(result);
}

WebServer::Reply WebServer::answerFile(const std::string& requested) {
  auto opened = files_->open(requested);
  if (!opened.ok()) return Reply::error(httpStatusOf(opened.status()), opened.status().message());
  Reply r;
  r.type = ContainedFiles::contentType(opened->path);
  r.fileSize = static_cast<uint64_t>(opened->size);
  r.file = std::move(opened->fd);
  return r;
}

StatusOr<Json> WebServer::onMain(std::function<StatusOr<Json>(WebBridge&)> work) {
  auto result = std::make_shared<std::optional<StatusOr<Json>>>();
  main_->post([waits = waits_, result, work = std::move(work), bridge = bridge_]() mutable {
    StatusOr<Json> value = work(*bridge);
    std::lock_guard lock(waits->mutex);
    *result = std::move(value);
    waits->done.notify_all();
  });
  std::unique_lock lock(waits_->mutex);
  if (!waits_->done.wait_for(lock, kMainQueueWait, [&] { return result->has_value() || waits_->stopping; }))
    return Status::unavailable("the host's main queue did not get to the request");
  if (!result->has_value()) return Status::unavailable("the server is stopping");
  return std::move(**result);
}

int WebServer::send(MHD_Connection* c, Reply reply) {
  MHD_Response* response =
      reply.file.valid()
          ? MHD_create_response_from_fd(reply.fileSize, reply.file.release())
          : MHD_create_response_from_buffer(reply.body.size(), reply.body.data(), MHD_RESPMEM_MUST_COPY);
  if (!response) return false;
  MHD_add_response_header(response, "Content-Type", reply.type.c_str());
  MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
  MHD_add_response_header(response, "Cache-Control", "no-store");
  MHD_add_response_header(response, "Cross-Origin-Resource-Policy", "same-origin");
  if (reply.page) MHD_add_response_header(response, "Content-Security-Policy", kPageSecurityPolicy);
  const MHD_Result queued = MHD_queue_response(c, static_cast<unsigned>(reply.status), response);
  MHD_destroy_response(response);
  return queued == MHD_YES;
}

}  // namespace velqor
