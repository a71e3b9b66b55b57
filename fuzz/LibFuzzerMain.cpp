// The libFuzzer entry of one target, chosen at build time by VELQOR_FUZZ_TARGET.
#include "fuzz/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const velqor::fuzz::Target* target = velqor::fuzz::targetNamed(VELQOR_FUZZ_TARGET);
  return target ? target->run(data, size) : 0;
}
