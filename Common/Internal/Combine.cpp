#include "Common/Internal/Combine.h"

#include <cstring>

#include "Common/Internal/PackedPixels.h"

namespace tarn {
namespace {

constexpr uint64_t kAll = ~uint64_t{0};
constexpr uint64_t kAlpha32 = 0xFF000000FF000000;
constexpr uint64_t kAlpha64 = 0xFFFF000000000000;

// ---- Rules ---------------------------------------------------------------------------------------------------------

bool BitOf(uint32_t flags, bool d, bool s) noexcept {
  if (flags & T_COMBINE_INVERT_DESTINATION) d = !d;
  if (flags & T_COMBINE_INVERT_SOURCE) s = !s;
  bool result = s;
  switch (flags & T_COMBINE_OPERATION) {
    case T_COMBINE_AND:
      result = d && s;
      break;
    case T_COMBINE_OR:
      result = d || s;
      break;
    case T_COMBINE_XOR:
      result = d != s;
      break;
    default:
      break;
  }
  return result != ((flags & T_COMBINE_INVERT_RESULT) != 0);
}

/// What a bit of the source makes of the destination's is one of: nothing, one, the bit, its inverse.
BitRule BitRuleOf(uint32_t flags) noexcept {
  const auto word = [](bool bit) noexcept { return bit ? kAll : 0; };
  const bool zero = BitOf(flags, false, false), one = BitOf(flags, false, true);
  const bool depends0 = zero != BitOf(flags, true, false), depends1 = one != BitOf(flags, true, true);
  return {word(depends0 != depends1), word(depends0), word(zero != one), word(zero)};
}

SampleOperation OperationOf(uint32_t flags) noexcept {
  return static_cast<SampleOperation>((flags & T_COMBINE_OPERATION) - T_COMBINE_ADD);
}

// ---- Alpha ---------------------------------------------------------------------------------------------------------

/// Alpha of a source's pixels, once for each sample that it mixes.
template <class Sample, int kSamples>
void SpreadAlpha(Sample* alpha, const uint8_t* pixels, int32_t alphaBits, int64_t count) noexcept {
  for (int64_t i = 0; i < count; ++i, alpha += kSamples) {
    uint32_t a = static_cast<Sample>(-1);
    if (alphaBits == 32) {
      a = pixels[4 * i + 3];
      if (sizeof(Sample) == 2) a *= 257;
    } else if (alphaBits == 64) {
      a = pixels[8 * i + 6] | pixels[8 * i + 7] * 256u;
      if (sizeof(Sample) == 1) a >>= 8;
    }
    for (int k = 0; k < kSamples; ++k) alpha[k] = static_cast<Sample>(a);
  }
}

/// The same from a pixel into one of the same size, in steps that compilers make vectors of.
template <class Pixel>
void SpreadOwnAlpha(uint8_t* alpha, const uint8_t* pixels, int64_t count) noexcept {
  constexpr int kBits = 2 * static_cast<int>(sizeof(Pixel));  // of a sample
  for (int64_t i = 0; i < count; ++i) {
    Pixel pixel;
    std::memcpy(&pixel, pixels + i * static_cast<int64_t>(sizeof pixel), sizeof pixel);
    pixel >>= 3 * kBits;
    pixel |= pixel << kBits;
    pixel |= pixel << 2 * kBits;
    std::memcpy(alpha + i * static_cast<int64_t>(sizeof pixel), &pixel, sizeof pixel);
  }
}

template <class Sample>
void SpreadAlpha(uint8_t* alpha, const uint8_t* pixels, int32_t alphaBits, int64_t count, int samples) noexcept {
  auto* const line = reinterpret_cast<Sample*>(alpha);
  if (samples == 4 && alphaBits == 32 && sizeof(Sample) == 1) return SpreadOwnAlpha<uint32_t>(alpha, pixels, count);
  if (samples == 4 && alphaBits == 64 && sizeof(Sample) == 2) return SpreadOwnAlpha<uint64_t>(alpha, pixels, count);
  if (samples == 4) return SpreadAlpha<Sample, 4>(line, pixels, alphaBits, count);
  if (samples == 3) return SpreadAlpha<Sample, 3>(line, pixels, alphaBits, count);
  SpreadAlpha<Sample, 1>(line, pixels, alphaBits, count);
}

/// In pieces that do not become string moves: these are slow from and to odd addresses.
void CopyBytes(uint8_t* target, const uint8_t* source, uint64_t bytes) noexcept {
  constexpr uint64_t kPiece = 2048;
  for (; bytes > kPiece; bytes -= kPiece, target += kPiece, source += kPiece) std::memcpy(target, source, kPiece);
  std::memcpy(target, source, bytes);
}

// ---- Levels of 1 to 32 bits ----------------------------------------------------------------------------------------

void TakeLevels(uint32_t* levels, const uint8_t* line, int64_t count, int32_t bits, const GrayParams& params) noexcept {
  for (int64_t i = 0; i < count; ++i) {
    uint32_t sample;
    if (bits == 32) {
      std::memcpy(&sample, line + 4 * i, 4);
    } else {
      sample = DeepSample(line, i, bits);
    }
    levels[i] = sample >> params.shift & params.mask;
  }
}

void PutLevels(uint8_t* line, const uint32_t* levels, int64_t count, int32_t bits, const GrayParams& params) noexcept {
  for (int64_t i = 0; i < count; ++i) {
    const uint32_t sample = levels[i] << params.shift;
    if (bits != 12) {
      std::memcpy(line + i * (bits / 8), &sample, static_cast<size_t>(bits) / 8);
      continue;
    }
    uint8_t* const at = line + i / 2 * 3 + i % 2;
    if (i % 2) {
      at[0] = static_cast<uint8_t>(at[0] | sample << 4);
      at[1] = static_cast<uint8_t>(sample >> 4);
    } else {
      at[0] = static_cast<uint8_t>(sample);
      at[1] = static_cast<uint8_t>(sample >> 8);
    }
  }
}

template <class Function>
void ForLevels(uint32_t* d, const uint32_t* s, int64_t count, uint32_t flags, uint32_t most, Function apply) noexcept {
  const uint32_t invertD = flags & T_COMBINE_INVERT_DESTINATION ? most : 0;
  const uint32_t invertS = flags & T_COMBINE_INVERT_SOURCE ? most : 0;
  const uint32_t invertR = flags & T_COMBINE_INVERT_RESULT ? most : 0;
  for (int64_t i = 0; i < count; ++i)
    d[i] = static_cast<uint32_t>(apply(uint64_t{d[i] ^ invertD}, uint64_t{s[i] ^ invertS}, i)) ^ invertR;
}

void CombineLevels(uint32_t* d, const uint32_t* s, const uint16_t* alpha, int64_t count, uint32_t flags,
                   const GrayParams& params) noexcept {
  const uint64_t most = params.mask;
  const auto run = [&](auto apply) noexcept { ForLevels(d, s, count, flags, params.mask, apply); };
  switch (flags & T_COMBINE_OPERATION) {
    case T_COMBINE_ADD:
      return run([most](uint64_t a, uint64_t b, int64_t) noexcept { return a + b > most ? most : a + b; });
    case T_COMBINE_SUBTRACT:
      return run([](uint64_t a, uint64_t b, int64_t) noexcept { return a > b ? a - b : 0; });
    case T_COMBINE_AVERAGE:
      return run([](uint64_t a, uint64_t b, int64_t) noexcept { return (a + b + 1) >> 1; });
    case T_COMBINE_MINIMUM:
      return run([](uint64_t a, uint64_t b, int64_t) noexcept { return a < b ? a : b; });
    case T_COMBINE_MAXIMUM:
      return run([](uint64_t a, uint64_t b, int64_t) noexcept { return a > b ? a : b; });
    case T_COMBINE_MULTIPLY: {
      // x / (2^n - 1), rounded, for x of at most the square of the divisor: below 2^64 with what is added.
      const int32_t n = params.significant;
      return run([n](uint64_t a, uint64_t b, int64_t) noexcept {
        const uint64_t x = a * b + (uint64_t{1} << (n - 1));
        return (x + (x >> n)) >> n;
      });
    }
    default:
      return run([alpha](uint64_t a, uint64_t b, int64_t i) noexcept {
        const uint64_t share = alpha[i];
        return (b * share + a * (65535 - share) + 32767) / 65535;
      });
  }
}

}  // namespace

// ---- Before the first row ------------------------------------------------------------------------------------------

Status RowCombiner::Open(const BitmapHandle& destination, const BitmapHandle& source, const Placement& placement,
                         uint32_t flags) noexcept {
  flags_ = flags;
  bits_ = destination.BitsPerPixel;
  sourceDepth_ = source.BitsPerPixel;
  columns_ = placement.columns;
  const auto sourceBits = static_cast<uint32_t>(source.BitsPerPixel), targetBits = static_cast<uint32_t>(bits_);
  sourceBits_ = static_cast<uint64_t>(placement.sourceColumn) * sourceBits;
  sourceCount_ = static_cast<uint64_t>(columns_) * sourceBits;
  targetBits_ = static_cast<uint64_t>(placement.targetColumn) * targetBits;
  targetCount_ = static_cast<uint64_t>(columns_) * targetBits;

  const uint32_t operation = flags & T_COMBINE_OPERATION;
  const bool colored = bits_ == 16 && destination.Order != T_ORDER_GRAY;
  BitmapHandle form = destination;  // a format, nothing else
  if (operation > T_COMBINE_XOR) {
    way_ = Way::kSamples;
    if (IsDeepGray(destination)) {
      params_ = SamplesOf(destination);
      if (bits_ != 16 || !IsWholeSample(params_, bits_)) way_ = Way::kLevels;
    } else if ((bits_ <= 8 && !IsGray8(destination)) || colored) {
      way_ = Way::kColors;
      form.BitsPerPixel = 32;
      form.Order = T_ORDER_BGR;
      form.Palette = nullptr;
      form.LUT = nullptr;
    }
  }
  formBits_ = form.BitsPerPixel;
  words_ = formBits_ == 48 || formBits_ == 64 || (formBits_ == 16 && way_ == Way::kSamples);
  keepsTop_ = colored;
  blends_ = operation == T_COMBINE_ALPHA;
  alphaBits_ = HasDeepAlpha(source) ? static_cast<int32_t>(sourceBits) : 0;
  if (way_ == Way::kSamples && HasDeepAlpha(destination)) alphaPattern_ = formBits_ == 32 ? kAlpha32 : kAlpha64;
  ChooseRules(flags);

  TARN_TRY(into_.Open(source, form, columns_, TARN_HERE));
  plain_ = way_ == Way::kBits && bitRule_.and1 == 0 && bitRule_.xor1 == 0 && bitRule_.and2 == kAll &&
           bitRule_.xor2 == 0 && into_.Direct();
  constexpr uint64_t kStreamedBytes = uint64_t{24} << 20;
  streams_ = TargetBytes() * static_cast<uint64_t>(placement.rows) >= kStreamedBytes;
  if (way_ == Way::kColors) {
    BitmapHandle line = destination;
    line.Width = static_cast<int32_t>(columns_);
    const LineFormat colors{32, T_ORDER_BGR, nullptr};
    TARN_TRY(toColors_.Open(line, colors, 0, TARN_HERE));
    TARN_TRY(fromColors_.Open(colors, FormatOf(destination, entries_), {}));
  }
  return MakeBuffers();
}

void RowCombiner::ChooseRules(uint32_t flags) noexcept {
  if (way_ == Way::kBits) {
    bitRule_ = BitRuleOf(flags);
    return;
  }
  const auto inverts = [&](uint32_t flag) noexcept { return flags & flag ? ~alphaPattern_ : 0; };
  sampleRule_ = {inverts(T_COMBINE_INVERT_SOURCE), inverts(T_COMBINE_INVERT_DESTINATION),
                 inverts(T_COMBINE_INVERT_RESULT), blends_ ? 0 : alphaPattern_};
}

Status RowCombiner::MakeBuffers() noexcept {
  const uint64_t formBytes = BytesOf(columns_, formBits_);
  const auto make = [](TrackedBuffer<uint8_t>& buffer, uint64_t bytes) noexcept -> Status {
    buffer = TrackedBuffer<uint8_t>::Zeroed(bytes + 8, TARN_HERE);
    return buffer ? SUCCESS : ERR_NO_MEMORY;
  };
  TARN_TRY(make(aligned_, SourceBytes()));
  if (!into_.Direct() || alphaPattern_) TARN_TRY(make(made_, formBytes));
  if (SharesBytes(bits_) || way_ == Way::kColors || way_ == Way::kLevels) TARN_TRY(make(packed_, TargetBytes()));
  if (way_ == Way::kColors) TARN_TRY(make(formed_, formBytes));
  if (blends_) TARN_TRY(make(alpha_, way_ == Way::kLevels ? 2 * static_cast<uint64_t>(columns_) : formBytes));
  if (way_ == Way::kLevels) {
    levels_ = TrackedBuffer<uint32_t>(2 * static_cast<uint64_t>(columns_), TARN_HERE);
    if (!levels_) return ERR_NO_MEMORY;
  }
  return SUCCESS;
}

// ---- Rows ----------------------------------------------------------------------------------------------------------

void RowCombiner::Run(uint8_t* row, const uint8_t* source) noexcept {
  const uint8_t* raw = source;
  auto bit = static_cast<uint32_t>(sourceBits_ % 8);
  if (copiesFirst_ && bit == 0) {
    std::memcpy(aligned_.data(), source, SourceBytes());
    raw = aligned_.data();
  } else if (copiesFirst_ || (bit != 0 && !(way_ == Way::kBits && into_.Direct()))) {
    ShiftFor(sourceDepth_)(aligned_.data(), 0, source, bit, sourceCount_);
    raw = aligned_.data();
    bit = 0;
  }
  const uint8_t* line = raw;
  if (!into_.Direct()) {
    into_.Make(made_.data(), raw, columns_);
    line = made_.data();
    bit = 0;
  }
  switch (way_) {
    case Way::kBits:
      return RunBits(row, line, bit);
    case Way::kSamples:
      return RunSamples(row + targetBits_ / 8, line, raw);
    case Way::kLevels:
      return RunLevels(row, line, raw);
    default:
      return RunColors(row, line, raw);
  }
}

void RowCombiner::RunBits(uint8_t* row, const uint8_t* line, uint32_t firstBit) noexcept {
  uint8_t* const target = row + targetBits_ / 8;
  const uint64_t bytes = TargetBytes();
  const CombineKernels& kernels = *Kernels().combine;
  if (!SharesBytes(bits_)) {
    if (plain_ && streams_) {
      Kernels().streamBits(target, 0, line, 0, 8 * bytes);
    } else if (plain_) {
      CopyBytes(target, line, bytes);
    } else {
      kernels.bits(target, line, bytes, bitRule_);
    }
    return;
  }
  const auto shift = ShiftFor(bits_);
  const auto bit = static_cast<uint32_t>(targetBits_ % 8);
  const auto stream = bits_ == 12 ? Kernels().streamLowBits : Kernels().streamBits;
  if (plain_) return (streams_ ? stream : shift)(target, bit, line, firstBit, targetCount_);
  // The source's pixels where the target has its own, then whole bytes; bits beside the pixels stay.
  shift(packed_.data(), bit, line, firstBit, targetCount_);
  uint8_t kept[2] = {target[0], target[bytes - 1]};
  kernels.bits(target, packed_.data(), bytes, bitRule_);
  const auto end = static_cast<uint32_t>((bit + targetCount_) % 8);
  if (bit) shift(target, 0, kept, 0, bit);
  if (end) shift(target + bytes - 1, end, kept + 1, end, 8 - end);
}

void RowCombiner::RunSamples(uint8_t* target, const uint8_t* line, const uint8_t* raw) noexcept {
  const uint64_t bytes = BytesOf(columns_, formBits_);
  const CombineKernels& kernels = *Kernels().combine;
  if (!blends_) {
    const auto at = static_cast<int>(OperationOf(flags_));
    (words_ ? kernels.samples16 : kernels.samples8)[at](target, line, bytes, sampleRule_);
    return;
  }
  const int samples = formBits_ / (words_ ? 16 : 8);
  (words_ ? SpreadAlpha<uint16_t> : SpreadAlpha<uint8_t>)(alpha_.data(), raw, alphaBits_, columns_, samples);
  if (alphaPattern_) {                                                            // alpha is mixed with the largest one
    constexpr BitRule kSet{.and1 = kAll, .xor1 = kAll, .and2 = kAll, .xor2 = 0};  // d | s
    uint8_t pattern[512];
    for (size_t i = 0; i < sizeof pattern; i += 8) std::memcpy(pattern + i, &alphaPattern_, 8);
    if (line != made_.data()) std::memcpy(made_.data(), line, bytes);
    for (uint64_t at = 0; at < bytes; at += sizeof pattern)
      kernels.bits(made_.data() + at, pattern, bytes - at < sizeof pattern ? bytes - at : sizeof pattern, kSet);
    line = made_.data();
  }
  (words_ ? kernels.blend16 : kernels.blend8)(target, line, alpha_.data(), bytes, sampleRule_);
}

/// The destination's pixels of a row from bit 0 on.
const uint8_t* RowCombiner::TargetPixels(const uint8_t* row) noexcept {
  const uint8_t* const target = row + targetBits_ / 8;
  const auto bit = static_cast<uint32_t>(targetBits_ % 8);
  if (bit == 0) return target;
  ShiftFor(bits_)(packed_.data(), 0, target, bit, targetCount_);
  return packed_.data();
}

void RowCombiner::PutPixels(uint8_t* row, const uint8_t* pixels) noexcept {
  uint8_t* const target = row + targetBits_ / 8;
  if (SharesBytes(bits_)) {
    ShiftFor(bits_)(target, static_cast<uint32_t>(targetBits_ % 8), pixels, 0, targetCount_);
  } else {
    std::memcpy(target, pixels, TargetBytes());
  }
}

void RowCombiner::RunLevels(uint8_t* row, const uint8_t* line, const uint8_t* raw) noexcept {
  uint32_t* const d = levels_.data();
  uint32_t* const s = d + columns_;
  TakeLevels(d, TargetPixels(row), columns_, bits_, params_);
  TakeLevels(s, line, columns_, bits_, params_);
  if (blends_) SpreadAlpha<uint16_t>(alpha_.data(), raw, alphaBits_, columns_, 1);
  CombineLevels(d, s, reinterpret_cast<const uint16_t*>(alpha_.data()), columns_, flags_, params_);
  PutLevels(packed_.data(), d, columns_, bits_, params_);
  PutPixels(row, packed_.data());
}

void RowCombiner::RunColors(uint8_t* row, const uint8_t* line, const uint8_t* raw) noexcept {
  toColors_.MakePixels(formed_.data(), TargetPixels(row), columns_);
  RunSamples(formed_.data(), line, raw);
  fromColors_.Convert(packed_.data(), formed_.data(), columns_);
  if (keepsTop_) {
    const uint8_t* const old = row + targetBits_ / 8;
    for (int64_t i = 0; i < columns_; ++i)
      packed_[static_cast<uint64_t>(2 * i + 1)] =
          static_cast<uint8_t>((packed_[static_cast<uint64_t>(2 * i + 1)] & 0x7F) | (old[2 * i + 1] & 0x80));
  }
  PutPixels(row, packed_.data());
}

}  // namespace tarn
