#pragma once

#include "core/PluginCore.h"
#include "core/ResultPair.h"

namespace velqor {

// Answers a camera photograph that waited for its location fix: re-writes the
// image with the plug-in's metadata, delivers it as the options ask, answers
// the current command once and clears the capture state.
//
// Threads: synchronous on the calling thread (the location delivery thread, or
// the host's thread when the host calls it).
class DeferredDelivery {
 public:
  static void imagePickerControllerReturnImageResult(PluginCore& core);
  // The image bytes with `metadata` written in, or `data` unchanged when any
  // step of the re-encoding fails; none without data.
  static std::shared_ptr<const Bytes> rewriteWithMetadata(PluginCore& core, const std::shared_ptr<const Bytes>& data,
                                                          const std::optional<Dictionary>& metadata);
  // `picture`'s pixels encoded in the container type of `typeSource` with
  // `properties` as their metadata; none when any step fails.
  static std::optional<Bytes> encodeLike(ImageCodec& codec, const Bytes& typeSource, const PlatformImage& picture,
                                         const Dictionary& properties);
};

}  // namespace velqor
