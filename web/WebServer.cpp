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
#include "web/EventStream.h"
#include "web/Exchange.h"
#include "web/HttpFraming.h"
#include "web/StaticFolder.h"

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

// A body sent from memory: the bytes (perhaps shared with other connections)
// and what of them this connection charged to the budget.
struct BodySource {
  std::shared_ptr<const std::string> bytes;
  BufferBudget* budget;
  size_t charged;
};

ssize_t readBody(void* cls, uint64_t position, char* buffer, size_t size) {
  const auto& bytes = *static_cast<BodySource*>(cls)->bytes;
  if (position >= bytes.size()) return MHD_CONTENT_READER_END_OF_STREAM;
  const size_t n = std::min(size, bytes.size() - static_cast<size_t>(position));
  std::memcpy(buffer, bytes.data() + position, n);
  return static_cast<ssize_t>(n);
}

void freeBody(void* cls) {
  auto* source = static_cast<BodySource*>(cls);
  source->budget->giveBack(source->charged);
  delete source;
}

ssize_t readStream(void* cls, uint64_t, char* buffer, size_t size) {
  const auto n = static_cast<EventStream*>(cls)->read(buffer, size);
  return n ? static_cast<ssize_t>(*n) : MHD_CONTENT_READER_END_WITH_ERROR;
}

void freeStream(void* cls) { delete static_cast<EventStream*>(cls); }

// The largest piece of a body the daemon asks for at once, per connection.
constexpr size_t kBodyBlock = 32 * 1024;
// How long an event stream may go without the client taking a byte.
constexpr unsigned kStreamIdleSeconds = 60;

}  // namespace

struct WebServer::Reply {
  int status = 200;
  std::shared_ptr<const std::string> body;
  bool charged = false;  // the body is a shared copy already charged to the budget
  std::string type = "application/json";
  UniqueFd file;  // served instead of `body` when valid
  uint64_t fileSize = 0;
  bool page = false;
  std::string location;                  // a redirect's target
  std::unique_ptr<EventStream> stream;   // served instead of `body` when set

  static Reply json(const Json& body, int status = 200) {
    Reply r;
    r.status = status;
    r.body = std::make_shared<const std::string>(body.dump(-1, ' ', false, Json::error_handler_t::replace));
    return r;
  }
  static Reply error(int status, const std::string& message) { return json(Json{{"error", message}}, status); }
  static Reply of(const StatusOr<Json>& result) {
    return result.ok() ? json(*result) : error(httpStatusOf(result.status()), result.status().message());
  }
  static Reply redirect(const std::string& to) {
    Reply r = json(Json{{"location", to}}, 302);
    r.location = to;
    return r;
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
  bridge.watch([feed = feed_] { feed->notify(); });
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
  feed_->stop();  // every event stream ends
  if (deadlines_) deadlines_->shutDownAll();
  if (daemon_) {
    MHD_stop_daemon(std::exchange(daemon_, nullptr));
    bridge_->watch(nullptr);
  }
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
    auto refusal = HttpFraming::check(headerFields(c));
    if (!refusal) refusal = guard_->check(head);
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
  if (method == "POST") {
    if (url == "/api/picker/file") return answerUpload(exchange);
    if (url == "/api/metadata") {
      if (exchange.body().empty()) return Reply::error(400, "send the image's bytes as the body");
      return Reply::json(WebBridge::metadataOf(exchange.body()));  // pure: no need for the main queue
    }
    auto body = JsonReader::parse(exchange.body().empty() && url == "/api/picker/cancel" ? "{}" : exchange.body(),
                                  "the request body", {.maxBytes = options_.maxJsonBytes, .maxDepth = 64});
    if (!body.ok()) return Reply::error(400, body.status().message());
    Reply reply = url == "/api/picker/cancel"
                      ? Reply::of(onMain([](WebBridge& b) { return b.cancelPicker(); }))
                      : Reply::of(onMain([call = kJsonCalls.at(url), body = std::move(*body)](WebBridge& b) {
                          return (b.*call)(body);
                        }));
    feed_->notify();  // device settings and the like change without an event
    return reply;
  }
  if (url == "/api/state") {
    const size_t answers = indexParam(c, "answers"), events = indexParam(c, "events");
    const uint64_t sequence = feed_->sequence();
    auto state = onMain([answers, events](WebBridge& b) -> StatusOr<Json> { return b.state(answers, events); });
    if (state.ok()) (*state)["seq"] = sequence;
    return Reply::of(state);
  }
  if (url == "/api/library") return Reply::of(onMain([](WebBridge& b) { return b.library(); }));
  if (url == "/api/events") return answerEvents(c);
  if (url.rfind("/api/answers/", 0) == 0) return answerPayload(url.substr(std::strlen("/api/answers/")));
  if (url.rfind("/files/", 0) == 0) return answerFile(url.substr(std::strlen("/files")));
  return answerStatic(url);
}

WebServer::Reply WebServer::answerStatic(const std::string& url) {
  constexpr std::string_view kPanel = "/velqor/";
  std::vector<std::pair<std::string, std::string>> tries;  // folder, path inside it
  if (url == "/velqor") return Reply::redirect("/velqor/");
  if (url.rfind(kPanel, 0) == 0) {
    for (const auto& folder : {options_.pageDirectory, options_.apiDirectory})
      if (!folder.empty()) tries.emplace_back(folder, url.substr(kPanel.size()));
  } else if (!options_.appDirectory.empty()) {
    tries.emplace_back(options_.appDirectory, url);
  } else if (url == "/") {
    return Reply::redirect("/velqor/");
  }
  for (const auto& [folder, path] : tries) {
    auto opened = StaticFolder(folder).open(path);
    if (!opened.ok()) continue;
    Reply r;
    r.type = StaticFolder::contentType(opened->path);
    r.fileSize = static_cast<uint64_t>(opened->size);
    r.file = std::move(opened->fd);
    r.page = true;
    return r;
  }
  return Reply::error(404, "no such file");
}

WebServer::Reply WebServer::answerEvents(MHD_Connection* c) {
  size_t answers = indexParam(c, "answers"), events = indexParam(c, "events");
  if (auto last = header(c, "Last-Event-ID"))
    if (auto resumed = EventStream::parseId(*last)) std::tie(answers, events) = *resumed;
  // The stream may stay quiet between keepalives; the daemon's own idle limit
  // would cut it otherwise.
  MHD_set_connection_option(c, MHD_CONNECTION_OPTION_TIMEOUT, kStreamIdleSeconds);
  Reply r;
  r.type = "text/event-stream";
  r.stream = std::make_unique<EventStream>(
      *feed_,
      [this](size_t a, size_t e) {
        return onMain([a, e](WebBridge& b) -> StatusOr<Json> { return b.state(a, e); });
      },
      answers, events, options_.keepalive);
  return r;
}

WebServer::Reply WebServer::answerPayload(const std::string& index) {
  if (index.empty() || index.size() > 18 || !std::all_of(index.begin(), index.end(), ::isdigit))
    return Reply::error(404, "no such answer");
  const size_t i = std::stoull(index);
  // The answer log may be read from any thread: a large payload is
  // serialized here, never on the main queue.
  auto copy = copies_.get(i, [this, i] { return bridge_->answerText(i); });
  if (!copy.ok()) return Reply::error(httpStatusOf(copy.status()), copy.status().message());
  Reply r;
  r.body = std::move(*copy);
  r.charged = true;
  return r;
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
  MHD_Response* response = nullptr;
  if (reply.stream) {
    response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 4096, &readStream, reply.stream.get(), &freeStream);
    if (response) (void)reply.stream.release();
  } else if (reply.file.valid()) {
    response = MHD_create_response_from_fd(reply.fileSize, reply.file.get());
    if (response) (void)reply.file.release();
  } else {
    size_t charge = reply.charged ? 0 : reply.body->size();
    if (charge > 0 && !budget_.take(charge)) {
      reply = Reply::error(503, "the server holds too many answers for readers; retry");
      charge = 0;
    }
    auto* source = new BodySource{reply.body, &budget_, charge};
    response = MHD_create_response_from_callback(reply.body->size(), std::clamp<size_t>(reply.body->size(), 1, kBodyBlock),
                                                 &readBody, source, &freeBody);
    if (!response) freeBody(source);
  }
  if (!response) return false;
  MHD_add_response_header(response, "Content-Type", reply.type.c_str());
  MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
  MHD_add_response_header(response, "Cache-Control", "no-store");
  MHD_add_response_header(response, "Cross-Origin-Resource-Policy", "same-origin");
  if (reply.page) MHD_add_response_header(response, "Content-Security-Policy", kPageSecurityPolicy);
  if (!reply.location.empty()) MHD_add_response_header(response, "Location", reply.location.c_str());
  // After a refusal the rest of the request (its body, a pipelined request)
  // is never read as a request of its own.
  if (reply.status >= 400) MHD_add_response_header(response, "Connection", "close");
  const MHD_Result queued = MHD_queue_response(c, static_cast<unsigned>(reply.status), response);
  MHD_destroy_response(response);
  return queued == MHD_YES;
}

std::vector<std::pair<std::string, std::string>> WebServer::headerFields(MHD_Connection* c) {
  std::vector<std::pair<std::string, std::string>> fields;
  MHD_get_connection_values(
      c, MHD_HEADER_KIND,
      [](void* cls, MHD_ValueKind, const char* key, const char* value) {
        static_cast<std::vector<std::pair<std::string, std::string>>*>(cls)->emplace_back(key ? key : "",
                                                                                            value ? value : "");
        return MHD_YES;
      },
      &fields);
  return fields;
}

}  // namespace velqor
