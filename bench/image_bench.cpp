// Decode, correct, fit and encode a 12 MP camera JPEG (EXIF orientation 6),
// with and without shrink-on-load, against a plain full decode + full encode
// measured in the same run.
#include <benchmark/benchmark.h>

#include <turbojpeg.h>

#include <algorithm>
#include <cstdio>
#include <vector>
#include <memory>

#include "imaging/Resampler.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "platform/linux/SampleImages.h"
#include "results/ImageGeometry.h"

namespace velqor {
namespace {

const std::shared_ptr<const Bytes>& cameraJpeg() {
  static auto bytes = std::make_shared<const Bytes>(*SampleImages::cameraJpeg(4032, 3024, 6, 93));
  return bytes;
}

void BM_PlainFullDecodeEncode(benchmark::State& state) {
  LinuxImageCodec codec;
  for (auto _ : state) {
    auto image = codec.imageWithData(cameraJpeg());
    auto bitmap = image->cgImage();
    auto out = JpegCodec::encode(*bitmap, 0.5);
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_PlainFullDecodeEncode)->Unit(benchmark::kMillisecond);

void BM_FitShrinkOnLoad(benchmark::State& state) {
  LinuxImageCodec codec;
  for (auto _ : state) {
    auto image = codec.imageWithData(cameraJpeg());
    auto upright = ImageGeometry::imageCorrectedForCaptureOrientation(*image, image->imageOrientation());
    auto fitted = ImageGeometry::imageByScalingNotCroppingForSize(*upright, {1024, 1024});
    auto out = codec.jpegRepresentation(*fitted, 0.5);
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_FitShrinkOnLoad)->Unit(benchmark::kMillisecond);

// The peer: libjpeg-turbo alone, decoding at the same reduced scale the fit
// path uses (1/2 for 4032x3024 -> 1024) and encoding a bitmap of the output's
// size at quality 50, 4:2:0, with no orientation or resampling work at all.
void BM_TurboReducedDecodeEncode(benchmark::State& state) {
  const auto& jpeg = *cameraJpeg();
  tjhandle decoder = tjInitDecompress();
  tjhandle encoder = tjInitCompress();
  std::vector<unsigned char> decoded(2016 * 1512 * 3);
  std::vector<unsigned char> frame(768 * 1024 * 3, 128);
  for (auto _ : state) {
    tjDecompress2(decoder, jpeg.data(), jpeg.size(), decoded.data(), 2016, 0, 1512, TJPF_RGB, 0);
    for (int y = 0; y < 1024; ++y)  // touch the output as a resample would
      std::copy_n(decoded.data() + static_cast<size_t>(y) * 2016 * 3, 768 * 3, frame.data() + static_cast<size_t>(y) * 768 * 3);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    tjCompress2(encoder, frame.data(), 768, 0, 1024, TJPF_RGB, &out, &size, TJSAMP_420, 50, 0);
    benchmark::DoNotOptimize(size);
    tjFree(out);
  }
  tjDestroy(decoder);
  tjDestroy(encoder);
}
BENCHMARK(BM_TurboReducedDecodeEncode)->Unit(benchmark::kMillisecond);

void BM_FitFullDecode(benchmark::State& state) {
  LinuxImageCodec codec;
  for (auto _ : state) {
    auto image = codec.imageWithData(cameraJpeg());
    auto full = PlatformImage::fromBitmap(*image->cgImage(), image->imageOrientation());
    auto upright = ImageGeometry::imageCorrectedForCaptureOrientation(*full, full->imageOrientation());
    auto fitted = ImageGeometry::imageByScalingNotCroppingForSize(*upright, {1024, 1024});
    auto out = codec.jpegRepresentation(*fitted, 0.5);
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_FitFullDecode)->Unit(benchmark::kMillisecond);

void BM_Stage_OpenWithOrientation(benchmark::State& state) {
  LinuxImageCodec codec;
  for (auto _ : state) benchmark::DoNotOptimize(codec.imageWithData(cameraJpeg()));
}
BENCHMARK(BM_Stage_OpenWithOrientation)->Unit(benchmark::kMillisecond);

void BM_Stage_Decode(benchmark::State& state) {
  auto src = *JpegCodec::source(cameraJpeg(), DecodeLimits{});
  const int min = static_cast<int>(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(src->decode(min, min * 3 / 4));
}
BENCHMARK(BM_Stage_Decode)->Arg(4032)->Arg(2048)->Arg(2016)->Arg(1008)->Unit(benchmark::kMillisecond);

void BM_Stage_Resize(benchmark::State& state) {
  Bitmap b = SampleImages::scene(static_cast<int>(state.range(0)), static_cast<int>(state.range(0)) * 3 / 4);
  for (auto _ : state) benchmark::DoNotOptimize(Resampler::resize(b, 1024, 768));
}
BENCHMARK(BM_Stage_Resize)->Arg(4032)->Arg(2520)->Arg(2016)->Unit(benchmark::kMillisecond);

void BM_Stage_Encode(benchmark::State& state) {
  Bitmap b = SampleImages::scene(768, 1024);
  for (auto _ : state) benchmark::DoNotOptimize(JpegCodec::encode(b, 0.5));
}
BENCHMARK(BM_Stage_Encode)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace velqor

namespace {

// Keeps the mean time of the two runs the ratio compares.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& r : runs) {
      if (r.run_type != Run::RT_Iteration) continue;
      const std::string name = r.benchmark_name();
      if (name.rfind("BM_PlainFullDecodeEncode", 0) == 0) plain = r.GetAdjustedRealTime();
      if (name.rfind("BM_FitShrinkOnLoad", 0) == 0) fit = r.GetAdjustedRealTime();
      if (name.rfind("BM_FitFullDecode", 0) == 0) fitFull = r.GetAdjustedRealTime();
      if (name.rfind("BM_TurboReducedDecodeEncode", 0) == 0) turbo = r.GetAdjustedRealTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double plain = 0, fit = 0, fitFull = 0, turbo = 0;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  velqor::cameraJpeg();  // made once, outside every timing
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  if (reporter.fit > 0 && reporter.plain > 0)
    std::printf("ratio: fit path (shrink-on-load) is %.2fx faster than a plain full decode + encode\n",
                reporter.plain / reporter.fit);
  if (reporter.fit > 0 && reporter.fitFull > 0)
    std::printf("ratio: fit path (shrink-on-load) is %.2fx faster than the fit path with a full decode\n",
                reporter.fitFull / reporter.fit);
  if (reporter.fit > 0 && reporter.turbo > 0)
    std::printf("ratio: fit path takes %.2fx the time of libjpeg-turbo's own 1/2-scale decode + encode (goal <= 1.3)\n",
                reporter.fit / reporter.turbo);
  return 0;
}
