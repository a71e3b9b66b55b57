#include "imaging/jpeg/JpegRowStream.h"

#include "imaging/jpeg/JpegDecompression.h"

namespace velqor {
namespace {

constexpr int kMaxRowsAtOnce = 64;

// Each function below holds its own setjmp frame with only trivial locals, so
// a libjpeg error jumps back over no destructor.

bool openSource(JpegDecompression& d, std::span<const std::uint8_t> jpeg) {
  if (setjmp(d.errors.jump)) return false;
  d.open(jpeg);
  return true;
}

bool startDecoding(JpegDecompression& d, J_COLOR_SPACE space) {
  if (setjmp(d.errors.jump)) return false;
  d.info.out_color_space = space;
  d.info.dct_method = JDCT_ISLOW;
  jpeg_start_decompress(&d.info);
  return true;
}

bool readLines(JpegDecompression& d, std::uint8_t* out, int rows, size_t stride) {
  if (setjmp(d.errors.jump)) return false;
  JSAMPROW pointers[kMaxRowsAtOnce];
  for (int first = 0; first < rows;) {
    const int batch = std::min(kMaxRowsAtOnce, rows - first);
    for (int i = 0; i < batch; ++i) pointers[i] = out + stride * static_cast<size_t>(first + i);
    for (int got = 0; got < batch;) {
      const JDIMENSION n = jpeg_read_scanlines(&d.info, pointers + got, static_cast<JDIMENSION>(batch - got));
      if (n == 0) return false;  // a memory source never suspends; nothing more will come
      got += static_cast<int>(n);
    }
    first += batch;
  }
  return true;
}

}  // namespace

StatusOr<std::unique_ptr<JpegRowStream>> JpegRowStream::open(std::span<const std::uint8_t> jpeg, bool keepYcbcr) {
  std::unique_ptr<JpegRowStream> s(new JpegRowStream());
  s->d_ = std::make_unique<JpegDecompression>();
  JpegDecompression& d = *s->d_;
  if (!openSource(d, jpeg)) return Status::dataLoss("cannot decode JPEG: " + d.errors.text());
  const bool ycc = d.info.jpeg_color_space == JCS_YCbCr && d.info.num_components == 3;
  const bool grey = d.info.jpeg_color_space == JCS_GRAYSCALE && d.info.num_components == 1;
  if (!ycc && !grey) return Status::failedPrecondition("rows are streamed from YCbCr and grey files only");
  s->layout_ = grey ? Layout::grey : keepYcbcr ? Layout::ycbcr : Layout::rgb;
  s->width_ = static_cast<int>(d.info.image_width);
  s->height_ = static_cast<int>(d.info.image_height);
  if (d.info.progressive_mode || d.info.buffered_image) {
    // The coefficient image, padded to whole blocks, at two bytes a sample.
    std::uint64_t samples = 0;
    for (int ci = 0; ci < d.info.num_components; ++ci) {
      const auto& c = d.info.comp_info[ci];
      const std::uint64_t bw = (static_cast<std::uint64_t>(d.info.image_width) * c.h_samp_factor +
                                8ull * d.info.max_h_samp_factor - 1) / (8ull * d.info.max_h_samp_factor);
      const std::uint64_t bh = (static_cast<std::uint64_t>(d.info.image_height) * c.v_samp_factor +
                                8ull * d.info.max_v_samp_factor - 1) / (8ull * d.info.max_v_samp_factor);
      samples += (bw + c.h_samp_factor) * (bh + c.v_samp_factor) * 64;
    }
    s->heldBytes_ = samples * 2;
  }
  return s;
}

JpegRowStream::~JpegRowStream() = default;

bool JpegRowStream::read(std::uint8_t* out, int rows) {
  if (!status_.ok()) return false;
  const J_COLOR_SPACE space = layout_ == Layout::grey ? JCS_GRAYSCALE : layout_ == Layout::ycbcr ? JCS_YCbCr : JCS_RGB;
  if (!started_ && !startDecoding(*d_, space)) {
    status_ = Status::dataLoss("cannot decode JPEG: " + d_->errors.text());
    return false;
  }
  started_ = true;
  if (rows > height_ - static_cast<int>(d_->info.output_scanline) || !readLines(*d_, out, rows, stride())) {
    status_ = Status::dataLoss("cannot decode JPEG: " + (d_->errors.text().empty() ? std::string("the image ends early")
                                                                                  : d_->errors.text()));
    return false;
  }
  return true;
}

}  // namespace velqor
