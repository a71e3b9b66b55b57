#pragma once

#include <chrono>
#include <functional>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/Executor.h"
#include "host/StatusOr.h"
#include "host/UniqueFd.h"
#include "web/AnswerCopies.h"
#include "web/BufferBudget.h"
#include "web/ChangeFeed.h"
#include "web/ConnectionDeadlines.h"
#include "web/ContainedFiles.h"
#include "web/RequestGuard.h"
#include "web/WebBridge.h"

struct MHD_Daemon;
struct MHD_Connection;

namespace velqor {

class Exchange;

// The web host's HTTP face, on libmicrohttpd with one thread per connection:
//   GET  /...                       the app developer's folder (StaticFolder), index.html for /;
//                                   without one, / redirects to /velqor/
//   GET  /velqor/...                the control panel and the scripts an app page loads
//                                   (host.js, bridge.js, overlay.js from the page folder,
//                                   velqor-camera.js from the page API folder)
//   GET  /api/state                 a bounded summary: answer statuses and sizes, events, the
//                                   screen and the open commands with why
//                                   (?answers=N&events=M: from those indexes)
//   GET  /api/events                the same as Server-Sent Events: the summary, then one
//                                   message per change (EventStream); Last-Event-ID resumes
//   GET  /api/answers/<i>           one answer with its payload, from one shared copy (AnswerCopies)
//   POST /api/call                  {"operation", "args"}: starts a plug-in command
//   POST /api/picker/file           multipart "file", "kind" (photo|video), "edit": the user's camera output
//   POST /api/picker/pick           {"asset", "edit"}; POST /api/picker/cancel
//   POST /api/alert                 {"button"}
//   POST /api/location              {"latitude", "longitude", "altitude"}
//   POST /api/device                permission states and sources
//   GET  /api/library               the photo library's assets
//   POST /api/metadata              body: encoded image bytes; answers its EXIF/GPS as JSON
//   GET  /files/<absolute path>     a result file or library asset (ContainedFiles)
//
// What a request may be is decided from its head by HttpFraming (how the body
// is framed) and RequestGuard before its body is read (Host names, same-origin and the custom header on POSTs, the
// route's body limit); bodies are counted as they arrive, uploads stream to
// the uploads folder, JSON is read with depth and size limits. Every answer
// carries Cross-Origin-Resource-Policy: same-origin; every error answer
// closes its connection. Answer bodies, like request bodies, are charged to
// the buffer budget while a connection sends them; past it a reader gets 503. ConnectionDeadlines
// bounds how long a client may take to send a request; the daemon caps
// connections in all and per client address, and the memory a request head
// may use. The listening socket is bound without SO_REUSEPORT: a second
// server on a taken port fails to bind.
//
// Handlers run on the connection threads and hand every bridge call to the
// main queue, waiting for its result (or for stop()); the main queue never
// waits for HTTP. Bad requests get a 4xx with {"error": message}.
//
// Threads: construct, bind, start and stop on one thread (the main thread).
class WebServer {
 public:
  struct Options {
    std::string host = "127.0.0.1";
    int port = 8080;  // 0: any free port
    // The control panel and the scripts an app page loads (/velqor/...).
    std::string pageDirectory;
    // The page API module (/velqor/velqor-camera.js); empty: none.
    std::string apiDirectory;
    // The app developer's folder served at /; empty: / leads to the control panel.
    std::string appDirectory;
    // Where uploads stream to; empty: uploads are refused.
    std::string uploadsDirectory;
    size_t maxJsonBytes = size_t{1} << 20;
    size_t maxUploadBytes = size_t{512} << 20;
    size_t maxImageBytes = size_t{32} << 20;
    // All bodies held in memory at once (JSON and image bytes).
    size_t maxBufferedBytes = size_t{96} << 20;
    size_t maxHeaderBytes = size_t{16} << 10;
    size_t maxHeaders = 64;
    unsigned maxConnections = 128;
    unsigned maxConnectionsPerClient = 16;
    std::chrono::milliseconds headDeadline{5000};
    std::chrono::milliseconds bodyDeadline{120000};
    // An event stream with nothing to say sends a comment this often.
    std::chrono::milliseconds keepalive{15000};
  };

  explicit WebServer(Options options);
  ~WebServer();

  // Binds the listening socket; returns the port. A taken port is an error
  // that says so.
  StatusOr<int> bind();
  // Serves on the daemon's threads until stop().
  void start(WebBridge& bridge, std::shared_ptr<Executor> mainQueue, ContainedFiles files);
  // Closes every connection, slow ones included, and waits for their threads.
  void stop();

  // Serves one already-connected socket as if it had been accepted (the
  // server takes the descriptor); used to feed requests as bytes.
  Status adopt(int fd);

  // "http://HOST:PORT" once bound.
  std::string origin() const;

  // Callbacks of the daemon; public only for its C entry points.
  int onRequest(MHD_Connection* c, const char* url, const char* method, const char* upload, size_t* uploadSize,
                void** context);
  void onCompleted(MHD_Connection* c, void** context);
  void onConnection(MHD_Connection* c, bool opened);

 private:
  struct Reply;
  Reply answer(MHD_Connection* c, const std::string& method, const std::string& url, Exchange& exchange);
  Reply answerUpload(Exchange& exchange);
  Reply answerFile(const std::string& requested);
  Reply answerStatic(const std::string& url);
  Reply answerEvents(MHD_Connection* c);
  Reply answerPayload(const std::string& index);
  StatusOr<nlohmann::json> onMain(std::function<StatusOr<nlohmann::json>(WebBridge&)> work);
  int send(MHD_Connection* c, Reply reply);
  // Every header field of the request as received, repeated ones included.
  static std::vector<std::pair<std::string, std::string>> headerFields(MHD_Connection* c);

  Options options_;
  int port_ = 0;
  UniqueFd listener_;
  std::unique_ptr<RequestGuard> guard_;
  BufferBudget budget_;
  std::unique_ptr<ConnectionDeadlines> deadlines_;
  MHD_Daemon* daemon_ = nullptr;
  WebBridge* bridge_ = nullptr;
  std::shared_ptr<Executor> main_;
  std::unique_ptr<ContainedFiles> files_;
  std::shared_ptr<ChangeFeed> feed_ = std::make_shared<ChangeFeed>();
  AnswerCopies copies_{budget_};
  // Shared with the closures posted to the main queue, which may run after
  // the server is gone.
  struct Waits {
    std::mutex mutex;
    std::condition_variable done;
    bool stopping = false;
  };
  std::shared_ptr<Waits> waits_ = std::make_shared<Waits>();
};

}  // namespace velqor
