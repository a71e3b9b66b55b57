#include "web/WebServer.h"

#include <httplib.h>
#include <unistd.h>

#include <chrono>
#include <future>

#include "host/FileBytes.h"

namespace velqor {
namespace {

using Json = nlohmann::json;
constexpr auto kMainQueueWait = std::chrono::seconds(30);

int httpStatusOf(const Status& status) {
  switch (status.code()) {
    case Status::Code::invalidArgument: return 400;
    case Status::Code::notFound: return 404;
    case Status::Code::failedPrecondition: return 409;
    case Status::Code::unavailable: return 503;
    default: return 500;
  }
}

void sendJson(httplib::Response& res, const Json& body, int status = 200) {
  res.status = status;
  res.set_content(body.dump(-1, ' ', false, Json::error_handler_t::replace), "application/json");
}

void sendError(httplib::Response& res, const Status& status) {
  sendJson(res, Json{{"error", status.message()}}, httpStatusOf(status));
}

size_t indexParam(const httplib::Request& req, const char* name) {
  if (!req.has_param(name)) return 0;
  const std::string v = req.get_param_value(name);
  if (v.empty() || v.size() > 18 || !std::all_of(v.begin(), v.end(), ::isdigit)) return 0;
  return static_cast<size_t>(std::stoull(v));
}

}  // namespace

WebServer::WebServer(Options options) : options_(std::move(options)), server_(std::make_unique<httplib::Server>()) {}

WebServer::~WebServer() { stop(); }

StatusOr<int> WebServer::bind() {
  if (options_.port < 0 || options_.port > 65535) return Status::invalidArgument("--port must be from 0 to 65535");
  if (options_.port == 0) {
    port_ = server_->bind_to_any_port(options_.host.c_str());
  } else {
    port_ = server_->bind_to_port(options_.host.c_str(), options_.port) ? options_.port : -1;
  }
  if (port_ <= 0) return Status::unavailable("cannot listen on " + options_.host + ":" + std::to_string(options_.port));
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
  routes();
  thread_ = std::thread([this] { server_->listen_after_bind(); });
}

void WebServer::stop() {
  if (server_) server_->stop();
  if (thread_.joinable()) thread_.join();
}

void WebServer::routes() {
  auto& s = *server_;
  s.set_payload_max_length(options_.maxUploadBytes);
  s.set_read_timeout(30, 0);
  s.set_write_timeout(60, 0);

  // Runs a bridge call on the main queue and waits for it on this server thread.
  auto onMain = [this](auto work) -> StatusOr<Json> {
    auto promise = std::make_shared<std::promise<StatusOr<Json>>>();
    auto future = promise->get_future();
    main_->post([promise, work = std::move(work), bridge = bridge_]() mutable {
      promise->set_value(work(*bridge));
    });
    if (future.wait_for(kMainQueueWait) != std::future_status::ready)
      return Status::unavailable("the host's main queue did not get to the request");
    return future.get();
  };
  auto reply = [](httplib::Response& res, const StatusOr<Json>& result) {
    if (result.ok())
      sendJson(res, *result);
    else
      sendError(res, result.status());
  };
  // A JSON body, within the size limit, parsed.
  auto jsonBody = [this](const httplib::Request& req) -> StatusOr<Json> {
    if (req.body.size() > options_.maxJsonBytes) return Status::invalidArgument("the request body is too large");
    if (req.get_header_value("Content-Type").rfind("application/json", 0) != 0)
      return Status::invalidArgument("the request body must be sent as application/json");
    Json parsed = Json::parse(req.body, nullptr, false);
    if (parsed.is_discarded()) return Status::invalidArgument("the request body is not valid JSON");
    return parsed;
  };

  s.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
    // Only the names this server is reached by on its own address; a page from
    // another site that rebinds its name to 127.0.0.1 is turned away.
    const std::string host = req.get_header_value("Host");
    const std::string port = ":" + std::to_string(port_);
    const bool known = host == options_.host + port || host == "localhost" + port || host == "127.0.0.1" + port ||
                       host == "[" + options_.host + "]" + port || host == "[::1]" + port;
    res.set_header("X-Content-Type-Options", "nosniff");
    res.set_header("Cache-Control", "no-store");
    if (!known && options_.host != "0.0.0.0" && options_.host != "::") {
      sendJson(res, Json{{"error", "unknown Host header"}}, 403);
      return httplib::Server::HandlerResponse::Handled;
    }
    return httplib::Server::HandlerResponse::Unhandled;
  });
  s.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
    sendJson(res, Json{{"error", "the request could not be handled"}}, 500);
  });
  s.set_error_handler([](const httplib::Request&, httplib::Response& res) {
    if (res.body.empty()) sendJson(res, Json{{"error", "no such route or bad request"}}, res.status);
  });

  const std::vector<std::pair<std::string, std::pair<std::string, std::string>>> page{
      {"/", {"index.html", "text/html; charset=utf-8"}},
      {"/app.js", {"app.js", "text/javascript; charset=utf-8"}},
      {"/camera.js", {"camera.js", "text/javascript; charset=utf-8"}},
      {"/exif.js", {"exif.js", "text/javascript; charset=utf-8"}},
      {"/screen.js", {"screen.js", "text/javascript; charset=utf-8"}},
      {"/style.css", {"style.css", "text/css; charset=utf-8"}}};
  for (const auto& [route, file] : page) {
    s.Get(route, [this, file = file](const httplib::Request&, httplib::Response& res) {
      auto bytes = FileBytes::read(options_.pageDirectory + "/" + file.first, 1 << 20);
      if (!bytes.ok()) return sendError(res, Status::notFound("the page is not installed: " + bytes.status().message()));
      res.set_header("Content-Security-Policy",
                     "default-src 'self'; img-src 'self' data: blob:; media-src 'self' data: blob:; "
                     "connect-src 'self' data: blob:; object-src 'none'; base-uri 'none'; frame-ancestors 'none'");
      res.set_content(std::string(bytes->begin(), bytes->end()), file.second);
    });
  }

  s.Get("/api/state", [=](const httplib::Request& req, httplib::Response& res) {
    const size_t answers = indexParam(req, "answers");
    const size_t events = indexParam(req, "events");
    reply(res, onMain([answers, events](WebBridge& b) -> StatusOr<Json> { return b.state(answers, events); }));
  });
  s.Get("/api/library", [=](const httplib::Request&, httplib::Response& res) {
    reply(res, onMain([](WebBridge& b) { return b.library(); }));
  });

  // Routes whose body is one JSON object handed to a bridge call.
  using JsonCall = StatusOr<Json> (WebBridge::*)(const Json&);
  const std::vector<std::pair<std::string, JsonCall>> jsonRoutes{{"/api/call", &WebBridge::call},
                                                                 {"/api/picker/pick", &WebBridge::pickAsset},
                                                                 {"/api/alert", &WebBridge::tapAlert},
                                                                 {"/api/location", &WebBridge::deliverFix},
                                                                 {"/api/device", &WebBridge::configureDevice}};
  for (const auto& [route, call] : jsonRoutes) {
    s.Post(route, [=, call = call](const httplib::Request& req, httplib::Response& res) {
      auto body = jsonBody(req);
      if (!body.ok()) return sendError(res, body.status());
      reply(res, onMain([call, body = std::move(*body)](WebBridge& b) { return (b.*call)(body); }));
    });
  }
  s.Post("/api/picker/cancel", [=](const httplib::Request&, httplib::Response& res) {
    reply(res, onMain([](WebBridge& b) { return b.cancelPicker(); }));
  });
  s.Post("/api/picker/file", [=](const httplib::Request& req, httplib::Response& res) {
    if (!req.is_multipart_form_data() || !req.has_file("file") || !req.has_file("kind"))
      return sendError(res, Status::invalidArgument("send multipart form data with \"file\" and \"kind\""));
    auto file = req.get_file_value("file");
    const std::string kind = req.get_file_value("kind").content;
    const std::string edit = req.has_file("edit") ? req.get_file_value("edit").content : std::string();
    reply(res, onMain([file = std::move(file), kind, edit](WebBridge& b) {
            return b.finishPickerWithFile(kind, file.filename, file.content, edit);
          }));
  });
  s.Post("/api/metadata", [=](const httplib::Request& req, httplib::Response& res) {
    // Pure computation on the request's own bytes: no need for the main queue.
    if (req.body.empty()) return sendError(res, Status::invalidArgument("send the image's bytes as the body"));
    sendJson(res, WebBridge::metadataOf(req.body));
  });

  s.Get(R"(/files(/.*))", [this](const httplib::Request& req, httplib::Response& res) {
    auto opened = files_->open(req.matches[1].str());
    if (!opened.ok()) return sendError(res, opened.status());
    const auto size = static_cast<size_t>(opened->size);
    const std::string type = ContainedFiles::contentType(opened->path);
    auto fd = std::make_shared<UniqueFd>(std::move(opened->fd));
    res.set_content_provider(size, type, [fd](size_t offset, size_t length, httplib::DataSink& sink) {
      char buffer[64 * 1024];
      const ssize_t n = ::pread(fd->get(), buffer, std::min(length, sizeof buffer), static_cast<off_t>(offset));
      if (n <= 0) return false;
      return sink.write(buffer, static_cast<size_t>(n));
    });
  });
}

}  // namespace velqor
