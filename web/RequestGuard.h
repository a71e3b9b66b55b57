#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace velqor {

// What the web host accepts from a request's head, decided before any byte of
// its body is read: which names the server may be reached by (DNS rebinding),
// which requests come from the page itself and not from another site, and how
// large a body each route takes.
//
// A request changes state when it is a POST to any route but /api/metadata;
// such a request must carry the header kCustomHeader (a cross-site form or a
// "no-cors" fetch cannot send it without a preflight this server never
// grants), and when the browser says where it comes from (Origin,
// Sec-Fetch-Site) that must be this server.
//
// Threads: any; immutable after construction.
class RequestGuard {
 public:
  static constexpr const char* kCustomHeader = "X-Velqor-Request";

  enum class Body { none, json, multipart, imageBytes };
  struct Route {
    Body body = Body::none;
    size_t maxBody = 0;
    bool changesState = false;
  };
  struct Limits {
    size_t maxJsonBytes = size_t{1} << 20;
    size_t maxUploadBytes = size_t{512} << 20;
    size_t maxImageBytes = size_t{32} << 20;
    size_t maxHeaders = 64;
  };
  // The parts of a request head the decisions need; absent headers are nullopt.
  struct Head {
    std::string method;
    std::string path;
    std::optional<std::string> host, origin, fetchSite, customHeader, contentType;
    std::optional<unsigned long long> contentLength;
    size_t headerCount = 0;
  };
  struct Refusal {
    int status;
    std::string message;
  };

  // `listenHost` and `port` as bound; a wildcard host accepts any Host name.
  RequestGuard(std::string listenHost, int port, Limits limits);

  // The route a request names, or nullopt for none (404).
  std::optional<Route> route(const std::string& method, const std::string& path) const;
  // Why the request is refused before its body is read, or nullopt.
  std::optional<Refusal> check(const Head& head) const;

  // "http://NAME:PORT" for every name the server answers to.
  const std::vector<std::string>& origins() const { return origins_; }

 private:
  bool knownHost(const std::string& host) const;

  std::vector<std::string> hosts_;
  std::vector<std::string> origins_;
  bool anyHost_;
  Limits limits_;
};

}  // namespace velqor
