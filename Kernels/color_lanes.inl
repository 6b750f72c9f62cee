// Four pixels of three or four bytes in lanes of 16 bits, loaded from four places and stored side by side. For files of
// AVX2, inside their unnamed namespace; they define V and Half, vectors of 32 and 16 bytes, before.

Half LoadLow(const uint8_t* at) noexcept { return _mm_loadl_epi64(reinterpret_cast<const Half*>(at)); }
V Joined(Half low, Half high) noexcept { return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1); }

/// Four shares, each for the four lanes of a pixel.
V SharesOfFour(const uint16_t* shares) noexcept {
  const V four = _mm256_broadcastq_epi64(LoadLow(reinterpret_cast<const uint8_t*>(shares)));
  return _mm256_shuffle_epi8(four, _mm256_setr_epi8(0, 1, 0, 1, 0, 1, 0, 1, 2, 3, 2, 3, 2, 3, 2, 3, 4, 5, 4, 5, 4, 5, 4,
                                                    5, 6, 7, 6, 7, 6, 7, 6, 7));
}

/// Four pixels of three or four bytes and their right neighbours.
template <int kBytes>
void LoadPairs(const uint8_t* from, const int32_t* at, V& left, V& right) noexcept {
  const V pairs = Joined(_mm_unpacklo_epi64(LoadLow(from + at[0]), LoadLow(from + at[1])),
                         _mm_unpacklo_epi64(LoadLow(from + at[2]), LoadLow(from + at[3])));
  constexpr char n = -1, s = kBytes;
  const Half a = _mm_setr_epi8(0, n, 1, n, 2, n, 3, n, 8, n, 9, n, 10, n, 11, n);
  const Half b = _mm_setr_epi8(s, n, s + 1, n, s + 2, n, s + 3, n, s + 8, n, s + 9, n, s + 10, n, s + 11, n);
  left = _mm256_shuffle_epi8(pairs, _mm256_broadcastsi128_si256(a));
  right = _mm256_shuffle_epi8(pairs, _mm256_broadcastsi128_si256(b));
}

template <int kBytes>
void StoreFour(uint8_t* to, V values) noexcept {
  const V packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(values, values), _MM_SHUFFLE(3, 1, 2, 0));
  Half bytes = _mm256_castsi256_si128(packed);
  if constexpr (kBytes == 4) return _mm_storeu_si128(reinterpret_cast<Half*>(to), bytes);
  bytes = _mm_shuffle_epi8(bytes, _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  _mm_storel_epi64(reinterpret_cast<Half*>(to), bytes);
  const int last = _mm_extract_epi32(bytes, 2);
  __builtin_memcpy(to + 8, &last, 4);
}
