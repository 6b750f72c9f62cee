// Splines of sixteen rows side by side: the sweeps go along the rows, a row a lane. For files of an instruction set,
// inside their unnamed namespace; they define Lanes before: sixteen numbers with +, - and *.
//   Lanes FromBytes(const uint8_t*), Lanes FromWords(__m256i), void ToBytes(uint8_t*, Lanes), truncated and clamped,
//   Lanes Load/void Store(float*), Lanes All(float), void NextFactor(Lanes right, Places&, Lanes& factor),
//   Lanes ZeroWhere(Lanes right, Lanes value), void StorePlaces(uint8_t*, Places), Lanes FactorsAt(const uint8_t*).

/// The factors of the forward sweep, -1 / (previous + 4) from 0 on: the last one follows itself.
struct SplineFactors {
  alignas(32) float values[8];
  constexpr SplineFactors() noexcept : values{} {
    for (int i = 1; i < 8; ++i) values[i] = -1.0f / (values[i - 1] + 4.0f);
  }
};
constexpr SplineFactors kSplineFactors;
static_assert(-1.0f / (kSplineFactors.values[7] + 4.0f) == kSplineFactors.values[7]);

constexpr int kLaneCount = 16;
constexpr int kBlock = kLaneCount * kLaneCount;

/// Sixteen rows of sixteen bytes exchanged with their columns.
void Transpose(__m128i* rows) noexcept {
  __m128i other[kLaneCount];
  __m128i* from = rows;
  __m128i* to = other;
  for (int pass = 0; pass < 4; ++pass) {
    for (int i = 0; i < 8; ++i) {
      to[2 * i] = _mm_unpacklo_epi8(from[i], from[i + 8]);
      to[2 * i + 1] = _mm_unpackhi_epi8(from[i], from[i + 8]);
    }
    __m128i* const last = from;
    from = to;
    to = last;
  }
}

/// Samples i.. of all rows; `count` of them, at most sixteen, are there.
void GatherColumns(uint8_t* columns, const uint8_t* const* rows, int64_t i, int64_t count) noexcept {
  __m128i block[kLaneCount];
  for (int lane = 0; lane < kLaneCount; ++lane) {
    if (count >= kLaneCount) {
      block[lane] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[lane] + i));
    } else {
      block[lane] = _mm_setzero_si128();
      __builtin_memcpy(&block[lane], rows[lane] + i, static_cast<size_t>(count));
    }
  }
  Transpose(block);
  __builtin_memcpy(columns, block, sizeof block);
}

void ScatterColumns(uint8_t* const* rows, const uint8_t* columns, int64_t i, int64_t count) noexcept {
  __m128i block[kLaneCount];
  __builtin_memcpy(block, columns, sizeof block);
  Transpose(block);
  for (int lane = 0; lane < kLaneCount; ++lane) {
    if (count >= kLaneCount)
      _mm_storeu_si128(reinterpret_cast<__m128i*>(rows[lane] + i), block[lane]);
    else
      __builtin_memcpy(rows[lane] + i, &block[lane], static_cast<size_t>(count));
  }
}

/// Bytes of sixteen rows, the places of factors, and second derivatives, sample by sample.
template <int kChannels>
void SplineColumns(uint8_t* const* targets, const uint8_t* y, int64_t pixels, const SplineSpot* spots, int64_t count,
                   uint8_t* places, float* second) noexcept {
  const auto column = [&](int64_t i, int c) { return (i * kChannels + c) * kLaneCount; };
  const Lanes zero = All(0);
  Lanes kept[kChannels];
  Places place[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    kept[c] = zero;
    place[c] = Places{};
  }
  const Lanes two = All(2);
  const Lanes six = All(6);
  for (int64_t i = 1; i < pixels - 1; ++i) {
    for (int c = 0; c < kChannels; ++c) {
      const Lanes middle = FromBytes(y + column(i, c));
      const Lanes right = six * (FromBytes(y + column(i - 1, c)) - two * middle + FromBytes(y + column(i + 1, c)));
      Lanes factor;
      NextFactor(right, place[c], factor);
      kept[c] = ZeroWhere(right, (kept[c] - right) * factor);
      Store(second + column(i, c), kept[c]);
      StorePlaces(places + column(i, c), place[c]);
    }
  }
  // From the last sample back: derivatives, and what lies between a sample and the one behind it.
  const Lanes half = All(0.5f);
  const int64_t samples = count * kChannels;
  alignas(64) uint8_t made[2 * kBlock];  // two blocks of sixteen columns by turns: pixels may begin in one of them
  int64_t block = (samples - 1) / kLaneCount * kLaneCount;
  Lanes behind[kChannels], behindSecond[kChannels];
  for (int c = 0; c < kChannels; ++c) behind[c] = behindSecond[c] = zero;
  int64_t next = count - 1;
  for (int64_t i = pixels - 1; i >= 0; --i) {
    Lanes here[kChannels], hereSecond[kChannels];
    for (int c = 0; c < kChannels; ++c) {
      here[c] = FromBytes(y + column(i, c));
      hereSecond[c] = i == 0 || i == pixels - 1
                          ? zero
                          : FactorsAt(places + column(i, c)) * behindSecond[c] + Load(second + column(i, c));
    }
    for (; next >= 0 && spots[next].from == i; --next) {
      const SplineSpot spot = spots[next];
      const Lanes t = All(spot.t), rest = All(1.0f - spot.t);
      const Lanes first = All(spot.firstFactor), nextFactor = All(spot.nextFactor);
      for (int c = 0; c < kChannels; ++c) {
        uint8_t* const to = made + (next * kChannels + c) % (2 * kLaneCount) * kLaneCount;
        if (spot.t == 0.0f)
          __builtin_memcpy(to, y + column(i, c), kLaneCount);
        else
          ToBytes(to, rest * here[c] + t * behind[c] + first * hereSecond[c] + nextFactor * behindSecond[c] + half);
      }
      if (next * kChannels > block) continue;
      const int64_t there = samples - block < kLaneCount ? samples - block : kLaneCount;
      ScatterColumns(targets, made + block % (2 * kLaneCount) * kLaneCount, block, there);
      block -= kLaneCount;
    }
    for (int c = 0; c < kChannels; ++c) {
      behind[c] = here[c];
      behindSecond[c] = hereSecond[c];
    }
  }
}

void SplineRows(uint8_t* const* targets, const uint8_t* const* sources, int64_t pixels, int32_t channels,
                const SplineSpot* spots, int64_t count, uint8_t* work) noexcept {
  const int64_t samples = pixels * channels;
  const int64_t columns = (samples + kLaneCount - 1) / kLaneCount * kLaneCount;
  auto* const second = reinterpret_cast<float*>(work);
  uint8_t* const places = work + samples * kLaneCount * 4;
  uint8_t* const y = places + samples * kLaneCount;
  for (int64_t i = 0; i < columns; i += kLaneCount) GatherColumns(y + i * kLaneCount, sources, i, samples - i);
  if (channels == 1) return SplineColumns<1>(targets, y, pixels, spots, count, places, second);
  if (channels == 3) return SplineColumns<3>(targets, y, pixels, spots, count, places, second);
  SplineColumns<4>(targets, y, pixels, spots, count, places, second);
}

/// Between the second and the third of four rows. Differences of second order are exact in words:
///   c = 3 (y0 - 2 y1 + y2),  e = 12 (y1 - 2 y2 + y3) - c
/// and what is left out of the rule's factors are powers of two, which move no rounding:
///   half the derivative at the third row is e k / 4, twice the one at the second row is c - e k / 4.
void SplineRow(void* to, const void* const* from, const SplineSpot& spot, int64_t samples) noexcept {
  auto* const target = static_cast<uint8_t*>(to);
  const uint8_t* rows[4];
  for (int i = 0; i < 4; ++i) rows[i] = static_cast<const uint8_t*>(from[i]);
  const Lanes t = All(spot.t), rest = All(1.0f - spot.t), half = All(0.5f), k = All(0.266667f / 4);
  const Lanes first = All(spot.firstFactor / 2), next = All(spot.nextFactor * 2);
  const auto weights = [](int even, int odd) {
    return _mm256_set1_epi16(static_cast<int16_t>((even & 0xFF) | static_cast<int>(static_cast<unsigned>(odd) << 8)));
  };
  const __m256i c01 = weights(3, -6), c23 = weights(3, 0), e01 = weights(-3, 18), e23 = weights(-27, 12);
  const auto load = [&rows](int row, int64_t at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[row] + at));
  };
  const auto pairs = [](__m128i a, __m128i b) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_unpacklo_epi8(a, b)), _mm_unpackhi_epi8(a, b), 1);
  };
  const auto sums = [](__m256i y01, __m256i w01, __m256i y23, __m256i w23) {
    return FromWords(_mm256_add_epi16(_mm256_maddubs_epi16(y01, w01), _mm256_maddubs_epi16(y23, w23)));
  };
  int64_t i = 0;
  for (; i + kLaneCount <= samples; i += kLaneCount) {
    const __m256i y01 = pairs(load(0, i), load(1, i)), y23 = pairs(load(2, i), load(3, i));
    const Lanes m2 = sums(y01, e01, y23, e23) * k;
    const Lanes m1 = sums(y01, c01, y23, c23) - m2;
    ToBytes(target + i, rest * FromBytes(rows[1] + i) + t * FromBytes(rows[2] + i) + first * m1 + next * m2 + half);
  }
  const void* const left[4] = {rows[0] + i, rows[1] + i, rows[2] + i, rows[3] + i};
  kSamplesPortable[static_cast<int>(Sample::kU8)].splineRow(target + i, left, spot, samples - i);
}
