#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "host/Executor.h"
#include "host/StatusOr.h"
#include "web/ContainedFiles.h"
#include "web/WebBridge.h"

namespace httplib {
class Server;
}

namespace velqor {

// The web host's HTTP face, on cpp-httplib:
//   GET  /, /app.js, /camera.js, /exif.js, /screen.js, /style.css
//                                   the page (from the page directory; nothing else of it)
//   GET  /api/state                 answers, events, the screen and the open commands with why
//                                   (?answers=N&events=M: from those indexes)
//   POST /api/call                  {"operation", "args"}: starts a plug-in command
//   POST /api/picker/file           multipart "file", "kind" (photo|video), "edit": the user's camera output
//   POST /api/picker/pick           {"asset", "edit"}; POST /api/picker/cancel
//   POST /api/alert                 {"button"}
//   POST /api/location              {"latitude", "longitude", "altitude"}
//   POST /api/device                permission states and sources
//   GET  /api/library               the photo library's assets
//   POST /api/metadata              body: encoded image bytes; answers its EXIF/GPS as JSON
//   GET  /files/<absolute path>     a file inside the temporary or library directory
//
// Handlers run on the server's threads and hand every bridge call to the main
// queue, waiting for its result there; the main queue never waits for HTTP.
// Bad requests get 400 with {"error": message}; requests naming another host
// than the one the server listens on (DNS rebinding) get 403; JSON routes
// accept only JSON bodies, which a cross-site form cannot send.
//
// Threads: construct, bind, start and stop on one thread (the main thread).
class WebServer {
 public:
  struct Options {
    std::string host = "127.0.0.1";
    int port = 8080;  // 0: any free port
    std::string pageDirectory;
    size_t maxJsonBytes = 1 << 20;
    size_t maxUploadBytes = size_t{512} << 20;
  };

  explicit WebServer(Options options);
  ~WebServer();

  // Binds the listening socket; returns the port.
  StatusOr<int> bind();
  // Serves on a background thread until stop().
  void start(WebBridge& bridge, std::shared_ptr<Executor> mainQueue, ContainedFiles files);
  void stop();

  // "http://HOST:PORT" once bound.
  std::string origin() const;

 private:
  void routes();

  Options options_;
  int port_ = 0;
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  WebBridge* bridge_ = nullptr;
  std::shared_ptr<Executor> main_;
  std::unique_ptr<ContainedFiles> files_;
};

}  // namespace velqor
