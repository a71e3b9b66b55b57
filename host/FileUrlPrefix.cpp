#include "host/FileUrlPrefix.h"

namespace velqor {

CommandDelegate::UrlTransformer FileUrlPrefix::transformer(std::string prefix) {
  while (!prefix.empty() && prefix.back() == '/') prefix.pop_back();
  return [prefix](const Url& url) -> Url {
    const std::string& s = url.absoluteString();
    if (s.rfind("file://", 0) != 0) return url;
    std::string rest = s.substr(7);
    // Drop an authority ("file://localhost/x"), keep the encoded path.
    size_t slash = rest.find('/');
    std::string path = slash == std::string::npos ? "/" : rest.substr(slash);
    auto out = Url::fromString(prefix + path);
    return out ? *out : url;
  };
}

}  // namespace velqor
