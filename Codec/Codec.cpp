// The two entry points, and how compressed rows are laid out:
//
//   | Header, 32 bytes | frame | frame | frame |
//
// The plain way and the one of columns have one frame, of all rows; gradients have one as well at 8 bits, and one for
// each plane at 24, the first with what stands behind the last whole pixel of each row at its end.

#include "tarn/codec.h"

#include <cstring>

#include "Codec/Entropy.h"
#include "Codec/Predict.h"

namespace tarn::codec {
namespace {

enum class Way : uint8_t { kPlain, kColumns, kGradient };

struct Header {
  uint8_t mark[2];
  uint8_t release;
  uint8_t bits;
  Way way;
  uint8_t reserved[3];
  uint32_t rowBytes;
  uint32_t rows;
  uint32_t frameBytes[kPlanes];
  uint32_t check;  // of everything before it
};
static_assert(sizeof(Header) == 32);

constexpr uint8_t kMark[2] = {'T', 'C'};
constexpr uint8_t kRelease = 1;

uint32_t CheckOf(const Header& header) noexcept {
  uint8_t bytes[sizeof header - sizeof header.check];
  std::memcpy(bytes, &header, sizeof bytes);
  uint32_t check = 0x811C9DC5;
  for (const uint8_t byte : bytes) check = (check ^ byte) * 0x01000193;
  return check;
}

struct Geometry {
  uint32_t rowBytes;
  uint32_t rows;
  uint32_t bits;
  explicit Geometry(const T_CodecBuffer& job) noexcept
      : rowBytes(job.BytesPerLine), rows(job.Height), bits(job.BitsPerPixel) {}

  [[nodiscard]] uint64_t Bytes() const noexcept { return uint64_t{rowBytes} * rows; }
  [[nodiscard]] uint64_t Pixels() const noexcept { return rowBytes / kPlanes; }  // whole ones of 24 bits a row
  [[nodiscard]] uint64_t Tail() const noexcept { return rowBytes % kPlanes; }
  [[nodiscard]] int Frames(Way way) const noexcept { return way == Way::kGradient && bits == 24 ? kPlanes : 1; }
  /// Bytes that a frame holds.
  [[nodiscard]] uint64_t FrameOf(Way way, int frame) const noexcept {
    if (Frames(way) == 1) return Bytes();
    return (Pixels() + (frame == 0 ? Tail() : 0)) * rows;
  }
  [[nodiscard]] uint64_t DataBound() const noexcept {
    uint64_t planes = 0;
    for (int frame = 0; frame < kPlanes; ++frame) planes += FrameBound(FrameOf(Way::kGradient, frame));
    return sizeof(Header) + (bits == 24 ? planes : FrameBound(Bytes()));  // three bounds are above that of one
  }
};

// Pieces of the caller's work area, each at a multiple of 64.
constexpr uint64_t kAlignment = 64;
constexpr uint64_t Aligned(uint64_t bytes) noexcept { return (bytes + kAlignment - 1) / kAlignment * kAlignment; }

class WorkArea {
 public:
  explicit WorkArea(const T_CodecBuffer& job) noexcept
      : at_(static_cast<uint8_t*>(job.Work) + (0 - reinterpret_cast<uintptr_t>(job.Work)) % kAlignment) {}
  uint8_t* Take(uint64_t bytes) noexcept {
    uint8_t* const piece = at_;
    at_ += Aligned(bytes);
    return piece;
  }

 private:
  uint8_t* at_;
};

// ---- Compressing ---------------------------------------------------------------------------------------------------

struct SavePieces {
  uint64_t context;
  uint64_t residuals;  // all of them, and two rows of planes
  uint64_t other;      // a second result
  explicit SavePieces(const Geometry& geometry) noexcept
      : context(CompressWork(geometry.Bytes())),
        residuals(geometry.Bytes() + uint64_t{2} * geometry.rowBytes),
        other(geometry.DataBound()) {}
  [[nodiscard]] uint64_t Bytes() const noexcept {
    return kAlignment + Aligned(context) + Aligned(residuals) + Aligned(other);
  }
};

// Green, red and blue of all rows behind each other, the tails of the rows behind green.
void PredictColors(const Geometry& geometry, const uint8_t* rows, uint8_t* residuals) noexcept {
  const uint64_t pixels = geometry.Pixels();
  const uint64_t tail = geometry.Tail();
  uint8_t* lines = residuals + geometry.Bytes();
  uint8_t* lastLines = lines + geometry.rowBytes;
  uint8_t* to[kPlanes] = {residuals, residuals + geometry.FrameOf(Way::kGradient, 0),
                          residuals + geometry.FrameOf(Way::kGradient, 0) + pixels * geometry.rows};
  uint8_t* tails = residuals + pixels * geometry.rows;
  for (uint32_t row = 0; row < geometry.rows; ++row) {
    const uint8_t* const from = rows + uint64_t{row} * geometry.rowBytes;
    uint8_t* const planes[kPlanes] = {lines, lines + pixels, lines + 2 * pixels};
    SplitColors(planes, from, pixels);
    for (int plane = 0; plane < kPlanes; ++plane) {
      const uint64_t offset = static_cast<uint64_t>(plane) * pixels;
      PredictPlane(to[plane], lines + offset, row ? lastLines + offset : nullptr, pixels);
      to[plane] += pixels;
    }
    std::memcpy(tails, from + kPlanes * pixels, tail);
    tails += tail;
    uint8_t* const swapped = lines;
    lines = lastLines;
    lastLines = swapped;
  }
}

// What a way makes of the rows; the rows themselves when it changes nothing.
const uint8_t* Prepare(const Geometry& geometry, Way way, const uint8_t* rows, uint8_t* residuals) noexcept {
  const uint64_t rowBytes = geometry.rowBytes;
  if (way == Way::kPlain) return rows;
  if (way == Way::kColumns) {
    Transpose(residuals, rows, geometry.rows, rowBytes);
  } else if (geometry.bits == 24) {
    PredictColors(geometry, rows, residuals);
  } else {
    for (uint32_t row = 0; row < geometry.rows; ++row) {
      const uint8_t* const from = rows + row * rowBytes;
      PredictGray(residuals + row * rowBytes, from, row ? from - rowBytes : nullptr, rowBytes);
    }
  }
  return residuals;
}

/// Header and frames; returns their bytes, 0 when they do not fit.
uint64_t Compress(const Geometry& geometry, Way way, const uint8_t* source, uint8_t* target, uint64_t room,
                  uint8_t* context, uint64_t contextBytes) noexcept {
  Header header = {{kMark[0], kMark[1]},
                   kRelease,
                   static_cast<uint8_t>(geometry.bits),
                   way,
                   {},
                   geometry.rowBytes,
                   geometry.rows,
                   {},
                   0};
  uint64_t at = sizeof header;
  for (int frame = 0; frame < geometry.Frames(way); ++frame) {
    const uint64_t bytes = geometry.FrameOf(way, frame);
    const uint64_t written = CompressFrame(target + at, room - at, source, bytes, context, contextBytes);
    if (written == 0 || written > UINT32_MAX) return 0;
    header.frameBytes[frame] = static_cast<uint32_t>(written);
    at += written;
    source += bytes;
  }
  header.check = CheckOf(header);
  std::memcpy(target, &header, sizeof header);
  return at;
}

// The ways to try, and the part of the plain size, as a divisor, below which the second is not tried any more.
struct Ways {
  Way first;
  Way second;
  uint32_t satisfied;
};
constexpr Ways WaysOf(uint32_t bits) noexcept {
  if (bits == 1) return {Way::kColumns, Way::kPlain, 4};
  return {Way::kGradient, Way::kPlain, bits == 8 ? 2u : 1u};
}

int64_t Save(const T_CodecBuffer& job) noexcept {
  const Geometry geometry(job);
  const SavePieces pieces(geometry);
  WorkArea work(job);
  uint8_t* const context = work.Take(pieces.context);
  uint8_t* const residuals = work.Take(pieces.residuals);
  uint8_t* const other = work.Take(pieces.other);
  const auto* const rows = static_cast<const uint8_t*>(job.Pixels);
  auto* const data = static_cast<uint8_t*>(job.Data);

  const Ways ways = WaysOf(geometry.bits);
  uint64_t bytes = Compress(geometry, ways.first, Prepare(geometry, ways.first, rows, residuals), data, job.DataBytes,
                            context, pieces.context);
  if (bytes == 0) return ERR_NO_MEMORY;
  if (bytes > geometry.Bytes() / ways.satisfied) {
    const uint64_t second = Compress(geometry, ways.second, Prepare(geometry, ways.second, rows, residuals), other,
                                     pieces.other, context, pieces.context);
    if (second != 0 && second < bytes) {
      std::memcpy(data, other, second);
      bytes = second;
    }
  }
  return static_cast<int64_t>(bytes);
}

// ---- Expanding -----------------------------------------------------------------------------------------------------

struct LoadPieces {
  uint64_t context;
  uint64_t residuals;  // but for 8 bits, which are expanded where they end
  uint64_t above;
  explicit LoadPieces(const Geometry& geometry) noexcept
      : context(ExpandWork()),
        residuals(geometry.bits == 8 ? 0 : geometry.Bytes()),
        above(geometry.bits == 24 ? geometry.Pixels() * 4 * sizeof(uint16_t) : 0) {}
  [[nodiscard]] uint64_t Bytes() const noexcept {
    return kAlignment + Aligned(context) + Aligned(residuals) + Aligned(above);
  }
};

bool ReadHeader(const Geometry& geometry, const T_CodecBuffer& job, Header& header) noexcept {
  if (job.DataBytes < sizeof header) return false;
  std::memcpy(&header, job.Data, sizeof header);
  const bool ours = std::memcmp(header.mark, kMark, sizeof kMark) == 0 && header.release == kRelease &&
                    header.check == CheckOf(header) && header.way <= Way::kGradient;
  if (!ours || header.bits != geometry.bits || header.rowBytes != geometry.rowBytes || header.rows != geometry.rows)
    return false;
  uint64_t bytes = sizeof header;
  for (int frame = 0; frame < kPlanes; ++frame) {
    if (frame >= geometry.Frames(header.way) && header.frameBytes[frame] != 0) return false;
    bytes += header.frameBytes[frame];
  }
  return bytes == job.DataBytes;
}

void ExpandPlanes(const Geometry& geometry, uint8_t* rows, const uint8_t* residuals, uint16_t* above) noexcept {
  const uint64_t pixels = geometry.Pixels();
  const uint64_t tail = geometry.Tail();
  std::memset(above, 0, pixels * 4 * sizeof *above);
  const uint8_t* const green = residuals;
  const uint8_t* const tails = residuals + pixels * geometry.rows;
  const uint8_t* const red = residuals + geometry.FrameOf(Way::kGradient, 0);
  const uint8_t* const blue = red + pixels * geometry.rows;
  for (uint32_t row = 0; row < geometry.rows; ++row) {
    uint8_t* const to = rows + uint64_t{row} * geometry.rowBytes;
    const uint64_t offset = row * pixels;
    const uint8_t* const planes[kPlanes] = {green + offset, red + offset, blue + offset};
    ExpandColors(to, planes, above, pixels);
    std::memcpy(to + kPlanes * pixels, tails + row * tail, tail);
  }
}

int64_t Load(const T_CodecBuffer& job) noexcept {
  const Geometry geometry(job);
  Header header;
  if (!ReadHeader(geometry, job, header)) return ERR_UNSUPPORTED_FORMAT;
  const LoadPieces pieces(geometry);
  WorkArea work(job);
  uint8_t* const context = work.Take(pieces.context);
  uint8_t* const residuals = work.Take(pieces.residuals);
  auto* const above = reinterpret_cast<uint16_t*>(work.Take(pieces.above));
  auto* const rows = static_cast<uint8_t*>(job.Pixels);

  const bool inPlanes = geometry.Frames(header.way) > 1;
  const bool inColumns = header.way == Way::kColumns;
  if (inColumns && geometry.bits != 1) return ERR_UNSUPPORTED_FORMAT;
  uint8_t* target = inPlanes || inColumns ? residuals : rows;
  const uint8_t* frame = static_cast<const uint8_t*>(job.Data) + sizeof header;
  for (int i = 0; i < geometry.Frames(header.way); ++i) {
    const uint64_t bytes = geometry.FrameOf(header.way, i);
    if (!ExpandFrame(target, bytes, frame, header.frameBytes[i], context, pieces.context))
      return ERR_UNSUPPORTED_FORMAT;
    target += bytes;
    frame += header.frameBytes[i];
  }
  const uint64_t rowBytes = geometry.rowBytes;
  if (inPlanes) {
    ExpandPlanes(geometry, rows, residuals, above);
  } else if (header.way == Way::kGradient) {
    for (uint32_t row = 0; row < geometry.rows; ++row) {
      uint8_t* const line = rows + row * rowBytes;
      ExpandGray(line, line, row ? line - rowBytes : nullptr, rowBytes);
    }
  } else if (inColumns) {
    Transpose(rows, residuals, rowBytes, geometry.rows);
  }
  return static_cast<int64_t>(geometry.Bytes());
}

// ---- Entry points --------------------------------------------------------------------------------------------------

int32_t CheckGeometry(const T_CodecBuffer* job) noexcept {
  if (!job) return ERR_INVALID_PARAMETER;
  if (job->StructSize != sizeof *job) return ERR_BAD_STRUCT_SIZE;
  if (job->BitsPerPixel != 1 && job->BitsPerPixel != 8 && job->BitsPerPixel != 24) return ERR_BAD_BITS_PER_PIXEL;
  if (job->BytesPerLine == 0 || job->Height == 0) return ERR_EMPTY_AREA;
  if (Geometry(*job).Bytes() > T_MAX_IMAGE_BYTES) return ERR_IMAGE_TOO_LARGE;
  return SUCCESS;
}

}  // namespace
}  // namespace tarn::codec

using namespace tarn::codec;

int64_t fltSaveBuffer(T_CodecBuffer* job) noexcept {
  if (const int32_t status = CheckGeometry(job); status != SUCCESS) return status;
  const Geometry geometry(*job);
  const uint64_t dataBytes = geometry.DataBound();
  const uint64_t workBytes = SavePieces(geometry).Bytes();
  if (!job->Data && !job->Work) {
    job->DataBytes = dataBytes;
    job->WorkBytes = workBytes;
    return SUCCESS;
  }
  if (!job->Pixels || !job->Data || !job->Work) return ERR_INVALID_PARAMETER;
  if (job->DataBytes < dataBytes || job->WorkBytes < workBytes) return ERR_NO_MEMORY;
  return Save(*job);
}

int64_t fltLoadBuffer(T_CodecBuffer* job) noexcept {
  if (const int32_t status = CheckGeometry(job); status != SUCCESS) return status;
  const uint64_t workBytes = LoadPieces(Geometry(*job)).Bytes();
  if (!job->Data && !job->Work) {
    job->WorkBytes = workBytes;
    return SUCCESS;
  }
  if (!job->Pixels || !job->Data || !job->Work) return ERR_INVALID_PARAMETER;
  if (job->WorkBytes < workBytes) return ERR_NO_MEMORY;
  return Load(*job);
}
