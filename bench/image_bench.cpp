// Decode, correct, fit and encode a 12 MP camera JPEG (EXIF orientation 6),
// with and without shrink-on-load, against a plain full decode + full encode
// measured in the same run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>

#include "platform/Resampler.h"
#include "platform/linux/JpegCodec.h"
#include "platform/linux/LinuxImageCodec.h"
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
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double plain = 0, fit = 0, fitFull = 0;
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
  return 0;
}
