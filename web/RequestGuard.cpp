#include "web/RequestGuard.h"

#include <algorithm>

namespace velqor {
namespace {

bool startsWith(const std::optional<std::string>& value, const char* prefix) {
  if (!value) return false;
  std::string lower = *value;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower.rfind(prefix, 0) == 0;
}

}  // namespace

RequestGuard::RequestGuard(std::string listenHost, int port, Limits limits)
    : anyHost_(listenHost == "0.0.0.0" || listenHost == "::"), limits_(limits) {
  const std::string p = ":" + std::to_string(port);
  const bool v6 = listenHost.find(':') != std::string::npos;
  for (const std::string& name : {v6 ? "[" + listenHost + "]" : listenHost, std::string("localhost"),
                                  std::string("127.0.0.1"), std::string("[::1]")}) {
    if (std::find(hosts_.begin(), hosts_.end(), name + p) != hosts_.end()) continue;
    hosts_.push_back(name + p);
    origins_.push_back("http://" + name + p);
  }
}

bool RequestGuard::knownHost(const std::string& host) const {
  return anyHost_ || std::find(hosts_.begin(), hosts_.end(), host) != hosts_.end();
}

std::optional<RequestGuard::Route> RequestGuard::route(const std::string& method, const std::string& path) const {
  if (method == "GET" || method == "HEAD") {
    // Below /api/ only the reading routes; anything else is a file of the
    // app, the control panel or the temporary and library folders.
    if (path.rfind("/api/", 0) != 0) return Route{};
    if (path == "/api/state" || path == "/api/library" || path == "/api/events" ||
        path.rfind("/api/answers/", 0) == 0)
      return Route{};
    return std::nullopt;
  }
  if (method != "POST") return std::nullopt;
  for (const char* json : {"/api/call", "/api/picker/pick", "/api/alert", "/api/location", "/api/device"})
    if (path == json) return Route{Body::json, limits_.maxJsonBytes, true};
  // The page sends "{}" when cancelling; any small JSON body is accepted.
  if (path == "/api/picker/cancel") return Route{Body::json, limits_.maxJsonBytes, true};
  if (path == "/api/picker/file") return Route{Body::multipart, limits_.maxUploadBytes, true};
  if (path == "/api/metadata") return Route{Body::imageBytes, limits_.maxImageBytes, false};
  return std::nullopt;
}

std::optional<RequestGuard::Refusal> RequestGuard::check(const Head& head) const {
  // Only the names this server is reached by on its own address; a page from
  // another site that rebinds its name to 127.0.0.1 is turned away.
  if (!head.host || !knownHost(*head.host)) return Refusal{403, "unknown Host header"};
  if (head.headerCount > limits_.maxHeaders)
    return Refusal{431, "more than " + std::to_string(limits_.maxHeaders) + " header fields"};
  const auto r = route(head.method, head.path);
  if (!r) return Refusal{404, "no such route"};
  if (head.method == "POST") {
    if (head.fetchSite && *head.fetchSite != "same-origin")
      return Refusal{403, "requests from another site are refused (Sec-Fetch-Site: " + *head.fetchSite + ")"};
    if (head.origin && (anyHost_ ? head.origin->rfind("http://", 0) != 0 || !knownHost(head.origin->substr(7))
                                 : std::find(origins_.begin(), origins_.end(), *head.origin) == origins_.end()))
      return Refusal{403, "requests from another origin are refused"};
    if (r->changesState && (!head.customHeader || *head.customHeader != "1"))
      return Refusal{403, std::string("state-changing requests must carry the header ") + kCustomHeader + ": 1"};
  }
  if (head.contentLength && *head.contentLength > r->maxBody)
    return Refusal{413, "the request body is too large: the limit of this route is " + std::to_string(r->maxBody) +
                            " bytes"};
  switch (r->body) {
    case Body::none:
      if (head.contentLength && *head.contentLength > 0) return Refusal{413, "this route takes no body"};
      break;
    case Body::json:
      if (!startsWith(head.contentType, "application/json"))
        return Refusal{400, "the request body must be sent as application/json"};
      break;
    case Body::multipart:
      if (!startsWith(head.contentType, "multipart/form-data"))
        return Refusal{400, "send multipart form data with \"file\" and \"kind\""};
      break;
    case Body::imageBytes:
      if (!startsWith(head.contentType, "image/") && !startsWith(head.contentType, "application/octet-stream"))
        return Refusal{415, "send the image's bytes as image/* or application/octet-stream"};
      break;
  }
  return std::nullopt;
}

}  // namespace velqor
