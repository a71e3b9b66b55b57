#include "files/UrlTransformer.h"

namespace velqor {

Url UrlTransformer::transform(const PluginCore& core, const Url& url) {
  const std::string& absolute = url.absoluteString();
  // A literal, case-sensitive prefix test on the characters, as the host expects.
  Url candidate = absolute.rfind("file", 0) == 0 ? url : Url::fileUrlWithPath(absolute);
  auto cb = core.currentCallBack.load();
  if (!cb) return url;
  const CommandDelegate* delegate = cb->commandDelegate();
  if (!delegate || !delegate->urlTransformer()) return url;
  return (*delegate->urlTransformer())(candidate);
}

}  // namespace velqor
