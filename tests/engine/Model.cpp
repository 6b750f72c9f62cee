#include "engine/Model.h"

#include <algorithm>
#include <cstring>

namespace tarn::engine {

Rules RulesOf(const BitmapHandle& record) {
  if (record.Flags & T_FLAG_COMPRESSED) return Rules::kCompressed;
  return record.Flags & T_FLAG_TILED ? Rules::kTiles : Rules::kOnePiece;
}

// ---- The model -----------------------------------------------------------------------------------------------------

namespace {

uint64_t ColumnByte(int32_t bits, uint32_t column) { return uint64_t{column} * static_cast<uint32_t>(bits) / 8; }

}  // namespace

bool Model::Start(Rules rules, uint32_t row, uint32_t column, uint64_t& start) const {
  if (row >= static_cast<uint32_t>(shape_.height)) return false;
  if (rules == Rules::kCompressed && column >= static_cast<uint32_t>(shape_.width)) return false;
  start = uint64_t{row} * shape_.RowBytes() + ColumnByte(shape_.bits, column);
  return true;
}

int64_t Model::Get(Rules rules, Bytes& buffer, uint32_t row, uint32_t column, uint64_t bytes) const {
  uint64_t start = 0;
  if (!Start(rules, row, column, start)) return ERR_INVALID_PARAMETER;
  uint64_t moved = 0;
  for (; moved < bytes && start + moved < rows_.size(); ++moved) buffer[moved] = rows_[start + moved];
  return static_cast<int64_t>(rules == Rules::kOnePiece ? moved : bytes);
}

int64_t Model::Put(Rules rules, const Bytes& buffer, uint32_t row, uint32_t column, uint64_t bytes,
                   int64_t failedTile) {
  uint64_t start = 0;
  if (!Start(rules, row, column, start)) return ERR_INVALID_PARAMETER;
  uint64_t moved = 0;
  for (; moved < bytes && start + moved < rows_.size(); ++moved) rows_[start + moved] = buffer[moved];
  if (rules == Rules::kCompressed) ClearPadding();
  if (rules == Rules::kTiles && moved < bytes) return failedTile;
  return static_cast<int64_t>(rules == Rules::kOnePiece ? moved : bytes);
}

int32_t Model::PutSegments(const Bytes& buffer, uint32_t row, uint32_t columnOffset,
                           const std::vector<uint32_t>& segments, bool preserveAlpha) {
  if (row >= static_cast<uint32_t>(shape_.height)) return ERR_INVALID_PARAMETER;
  const auto width = static_cast<uint32_t>(shape_.width);
  const auto bits = static_cast<uint32_t>(shape_.bits);
  const bool keepsAlpha = preserveAlpha && (bits == 32 || bits == 64);
  const uint64_t target = uint64_t{row} * shape_.RowBytes() * 8 + ColumnByte(shape_.bits, columnOffset) * 8;
  for (size_t i = 0; i + 1 < segments.size(); i += 2) {
    for (uint64_t pixel = segments[i]; pixel < segments[i + 1] && columnOffset + pixel < width; ++pixel) {
      for (uint32_t bit = 0; bit < (keepsAlpha ? bits / 4 * 3 : bits); ++bit)
        SetBit(rows_, target + pixel * bits + bit, Bit(buffer, pixel * bits + bit));
    }
  }
  return SUCCESS;
}

void Model::ChangeHeight(int32_t height) {
  shape_.height = height;
  rows_.resize(size_t{shape_.RowBytes()} * static_cast<uint32_t>(height));
}

void Model::ClearPadding() {
  for (int32_t row = 0; row < shape_.height; ++row)
    engine::ClearPadding(rows_.data() + size_t{shape_.RowBytes()} * static_cast<uint32_t>(row), shape_);
}

// ---- Records -------------------------------------------------------------------------------------------------------

Bytes SlowRecord(const std::vector<bool>& pixels) {
  std::vector<uint16_t> runs = {0};
  bool value = false;
  for (const bool pixel : pixels) {
    if (pixel != value) runs.push_back(0);
    value = pixel;
    ++runs.back();
  }
  const auto count = static_cast<uint32_t>(runs.size());
  Bytes record(4 + 2 * runs.size());
  std::memcpy(record.data(), &count, 4);
  std::memcpy(record.data() + 4, runs.data(), 2 * runs.size());
  return record;
}

bool ReadRecord(const uint8_t*& at, const uint8_t* end, uint32_t width, std::vector<bool>& pixels) {
  pixels.clear();
  uint32_t count = 0;
  if (end - at < 4) return false;
  std::memcpy(&count, at, 4);
  at += 4;
  if (static_cast<uint64_t>(end - at) < 2 * uint64_t{count}) return false;
  for (uint32_t run = 0; run < count; ++run, at += 2) {
    uint16_t length = 0;
    std::memcpy(&length, at, 2);
    pixels.insert(pixels.end(), length, run % 2 == 1);
  }
  return pixels.size() == width;
}

// ---- Sequences -----------------------------------------------------------------------------------------------------

namespace {

constexpr uint8_t kGuard = 0xC3;

class Sequence {
 public:
  Sequence(Kind kind, uint64_t seed)
      : seed_(seed), random_(Mix(seed, static_cast<uint64_t>(kind))), shape_(PickShape(kind)), model_(shape_) {
    wrong_ = picture_.MakeBlank(kind, shape_);
  }

  std::string Run(int steps, uint64_t& digest) {
    for (int step = 0; step < steps && wrong_.empty(); ++step) {
      Step();
      if (RulesOf(record_) == Rules::kCompressed) model_.ClearPadding();
      if (!wrong_.empty()) wrong_ += " in step " + std::to_string(step);
    }
    if (wrong_.empty()) CompareAll();
    digest = digest_;
    if (wrong_.empty()) return wrong_;
    return wrong_ + " of seed " + std::to_string(seed_) + ", " + Text(shape_) + " at first; " + SeedText();
  }

 private:
  Shape PickShape(Kind kind) {
    Shape shape{};
    shape.bits = kind == Kind::kCompressed || random_.OneIn(5) ? 1 : random_.Pick(kDepths);
    while (kind == Kind::kSuper && !(DepthsOf(kind) & DepthBit(shape.bits))) shape.bits = random_.Pick(kDepths);
    shape.width = random_.OneIn(4) ? random_.Between(1, 9) : random_.Between(10, 140);
    shape.height = random_.Between(kTileRows + 1, 30);
    return shape;
  }

  void Step() {
    switch (random_.Below(14)) {
      case 0:
      case 1:
        return PutRows(false);
      case 2:
      case 3:
        return PutRows(true);
      case 4:
        return GetRows(false);
      case 5:
      case 6:
        return GetRows(true);
      case 7:
      case 8:
        return PutSegments();
      case 9:
        return ChangeHeight();
      case 10:
        return Move();
      case 11:
        return AdjustTiles();
      case 12:
        return random_.OneIn(3) ? CopyAndGoOn() : Compression();
      default:
        return shape_.bits == 1 ? CompressedRows() : CompareAll();
    }
  }

  // What a step does with the bitmap is noted with its result.
  void Expect(const char* what, int64_t result, int64_t wanted) {
    digest_ = Mix(digest_, static_cast<uint64_t>(result));
    if (result != wanted && wrong_.empty())
      wrong_ = std::string(what) + " gives " + std::to_string(result) + " instead of " + std::to_string(wanted);
  }
  void ExpectBytes(const char* what, const Bytes& bytes, const Bytes& wanted) {
    for (const uint8_t byte : bytes) digest_ = (digest_ ^ byte) * 0x100000001B3u;
    if (bytes != wanted && wrong_.empty()) {
      size_t at = 0;
      while (at < bytes.size() && at < wanted.size() && bytes[at] == wanted[at]) ++at;
      wrong_ = std::string(what) + " gives other bytes from byte " + std::to_string(at) + " on";
    }
  }

  int32_t Height() const { return model_.GetShape().height; }
  uint32_t SomeRow() {
    if (random_.OneIn(12)) return static_cast<uint32_t>(Height()) + static_cast<uint32_t>(random_.Below(3));
    return static_cast<uint32_t>(random_.Below(static_cast<uint64_t>(Height())));
  }
  uint32_t SomeColumn() {
    return static_cast<uint32_t>(random_.Below(static_cast<uint64_t>(shape_.width) + random_.OneIn(8)));
  }
  uint64_t SomeCount() {
    const uint64_t rowBytes = shape_.RowBytes();
    switch (random_.Below(5)) {
      case 0:
        return rowBytes;
      case 1:
        return random_.Below(rowBytes);
      case 2:
        return random_.Below(4 * rowBytes);
      case 3:
        return random_.Below(3);
      default:
        return rowBytes * static_cast<uint32_t>(Height()) + random_.Below(9);
    }
  }
  Bytes Noise(uint64_t count) {
    Bytes bytes(count + 1);  // never without an address
    const bool blank = random_.OneIn(3);
    for (uint8_t& byte : bytes) byte = blank ? 0 : random_.Byte();
    return bytes;
  }

  class Locked {
   public:
    explicit Locked(BitmapHandle& record) : record_(record), before_(T_LockBitmap(&record)) {}
    ~Locked() { T_UnlockBitmap(&record_, before_); }

   private:
    BitmapHandle& record_;
    int32_t before_;
  };

  void PutRows(bool column) {
    const Locked locked(record_);
    const uint32_t row = SomeRow();
    const uint32_t at = column ? SomeColumn() : 0;
    const uint64_t count = SomeCount();
    const Bytes bytes = Noise(count);
    const Rules rules = RulesOf(record_);
    if (column) {
      Expect("T_PutBitmapRowCol", T_PutBitmapRowCol(&record_, bytes.data(), row, at, count),
             model_.Put(rules, bytes, row, at, count, ERR_NO_MEMORY));
    } else {
      Expect("T_PutBitmapRow", T_PutBitmapRow(&record_, bytes.data(), row, count),
             model_.Put(rules, bytes, row, 0, count, 0));
    }
  }

  void GetRows(bool column) {
    const Locked locked(record_);
    const uint32_t row = SomeRow();
    const uint32_t at = column ? SomeColumn() : 0;
    const uint64_t count = SomeCount();
    Bytes bytes(count + 16, kGuard);
    Bytes wanted = bytes;
    const int64_t result = model_.Get(RulesOf(record_), wanted, row, at, count);
    if (column)
      Expect("T_GetBitmapRowCol", T_GetBitmapRowCol(&record_, bytes.data(), row, at, count), result);
    else
      Expect("T_GetBitmapRow", T_GetBitmapRow(&record_, bytes.data(), row, count), result);
    ExpectBytes("a get", bytes, wanted);
  }

  void PutSegments() {
    const Locked locked(record_);
    const uint32_t row = SomeRow();
    const auto width = static_cast<uint32_t>(shape_.width);
    const auto offset = static_cast<uint32_t>(random_.OneIn(2) ? 0 : random_.Below(width + 2));
    std::vector<uint32_t> segments(random_.Below(8));
    for (uint32_t& position : segments) position = static_cast<uint32_t>(random_.Below(width + 10));
    const bool preserve = random_.OneIn(2);
    const Bytes line = Noise(shape_.RowBytes());
    const uint32_t none = 0;
    Expect("T_PutBitmapRowSegments",
           T_PutBitmapRowSegments(&record_, line.data(), row, offset, segments.empty() ? &none : segments.data(),
                                  static_cast<uint32_t>(segments.size()), preserve),
           model_.PutSegments(line, row, offset, segments, preserve));
  }

  void ChangeHeight() {
    const int32_t height = random_.Between(1, 40);
    if (record_.Flags & T_FLAG_USER_DATA) {
      const int32_t wanted = ERR_INVALID_PARAMETER;
      return Expect("T_ChangeBitmapHeight", T_ChangeBitmapHeight(&record_, height), wanted);
    }
    Expect("T_ChangeBitmapHeight", T_ChangeBitmapHeight(&record_, height), SUCCESS);
    model_.ChangeHeight(height);
  }

  void Move() {
    constexpr uint32_t kTypes[] = {TYPE_CONV, TYPE_DISK, TYPE_NODISK, TYPE_TILED, TYPE_TILED, TYPE_COMPRESSED};
    uint32_t type = random_.Pick(kTypes);
    if (random_.OneIn(5)) type = TYPE_SUPERCOMPRESSED | TYPE_CONV;
    if (type == TYPE_COMPRESSED && shape_.bits != 1) type = TYPE_CONV;
    const int64_t tileSize = int64_t{shape_.RowBytes()} * random_.Between(1, 6);
    Expect("T_SetBitmapMemoryInfo",
           T_SetBitmapMemoryInfo(&record_, type, tileSize, 0, static_cast<uint32_t>(random_.Below(4)),
                                 static_cast<uint32_t>(random_.Below(4)), static_cast<uint32_t>(random_.Below(4)),
                                 T_INFO_MEMORY_TYPE | T_INFO_TILE_SIZE | T_INFO_CONVENTIONAL_TILES |
                                     T_INFO_MAX_MAPPED_TILES | T_INFO_MAPPED_TILES),
           SUCCESS);
  }

  void AdjustTiles() {
    if (!(record_.Flags & T_FLAG_TILED)) return Move();
    Expect("T_SetBitmapMemoryInfo",
           T_SetBitmapMemoryInfo(&record_, 0, 0, 0, static_cast<uint32_t>(random_.Below(6)),
                                 static_cast<uint32_t>(random_.Below(4)), 0,
                                 T_INFO_CONVENTIONAL_TILES | T_INFO_MAX_MAPPED_TILES),
           SUCCESS);
  }

  void Compression() {
    if (random_.OneIn(3)) {
      const int32_t wanted = shape_.Suits(Kind::kSuper) ? int32_t{SUCCESS} : int32_t{ERR_BAD_BITS_PER_PIXEL};
      Expect("T_ChangeBitmapCompression", T_ChangeBitmapCompression(&record_, TYPE_SUPERCOMPRESSED), wanted);
      return Expect("T_CompactBitmap", T_CompactBitmap(&record_), SUCCESS);
    }
    const bool compress = random_.OneIn(2);
    Expect("T_ChangeBitmapCompression", T_ChangeBitmapCompression(&record_, compress ? TYPE_COMPRESSED : 0),
           compress && shape_.bits != 1 ? ERR_BAD_BITS_PER_PIXEL : SUCCESS);
    if (!(record_.Flags & T_FLAG_COMPRESSED)) return;
    if (random_.OneIn(2)) Expect("T_TrimBitmapHeap", T_TrimBitmapHeap(&record_), SUCCESS);
    if (random_.OneIn(2)) Expect("T_GrowBitmapHeap", T_GrowBitmapHeap(&record_, random_.Below(9000)), SUCCESS);
  }

  /// The pixels go on in a bitmap of another kind.
  void CopyAndGoOn() {
    const auto kind = static_cast<Kind>(random_.Below(kKinds));
    if (!model_.GetShape().Suits(kind)) return;
    Picture copy;
    wrong_ = copy.MakeBlank(kind, model_.GetShape());
    if (!wrong_.empty()) return;
    Expect("T_CopyBitmapData", T_CopyBitmapData(&copy.record, &record_), SUCCESS);
    picture_.Exchange(copy);
  }

  std::vector<bool> ModelRow(uint32_t row) const {
    std::vector<bool> pixels(static_cast<size_t>(shape_.width));
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = model_.Pixel(row, static_cast<uint32_t>(i));
    return pixels;
  }

  void CompressedRows() {
    const Locked locked(record_);
    const auto width = static_cast<uint32_t>(shape_.width);
    const auto row = static_cast<uint32_t>(random_.Below(static_cast<uint64_t>(Height())));
    const uint32_t rows = std::min(static_cast<uint32_t>(Height()) - row, static_cast<uint32_t>(random_.Below(5)));
    const auto column = static_cast<uint32_t>(random_.Below(width));
    const auto pixels = static_cast<uint32_t>(random_.Below(width + 4));
    const uint32_t inside = std::min(pixels, width - column);
    std::vector<bool> line;
    switch (random_.Below(4)) {
      case 0: {
        Bytes records((4 + 2 * (size_t{width} + 1)) * rows + 1);
        Expect("T_GetBitmapRowCompressed", T_GetBitmapRowCompressed(&record_, nullptr, records.data(), row, rows),
               SUCCESS);
        const uint8_t* at = records.data();
        for (uint32_t i = 0; i < rows; ++i) {
          if (!ReadRecord(at, records.data() + records.size(), width, line) || line != ModelRow(row + i))
            wrong_ = "T_GetBitmapRowCompressed gives another row";
        }
        return;
      }
      case 1: {
        Bytes record(4 + 2 * (size_t{width} + 1) + 2);
        Expect("T_GetBitmapRowColCompressed",
               T_GetBitmapRowColCompressed(&record_, nullptr, record.data(), row, column, pixels), inside);
        const uint8_t* at = record.data();
        const std::vector<bool> whole = ModelRow(row);
        if (!ReadRecord(at, at + record.size(), inside, line) ||
            !std::equal(line.begin(), line.end(), whole.begin() + column))
          wrong_ = "T_GetBitmapRowColCompressed gives another stretch";
        return;
      }
      case 2: {
        Bytes records;
        for (uint32_t i = 0; i < rows; ++i) {
          line.assign(width, false);
          for (size_t pixel = 0, run = 0; pixel < width; ++pixel) {
            if (run-- == 0) run = random_.Below(12);
            line[pixel] = (pixel + run) % 24 < 12;
          }
          const Bytes record = SlowRecord(line);
          records.insert(records.end(), record.begin(), record.end());
          for (uint32_t pixel = 0; pixel < width; ++pixel) model_.SetPixel(row + i, pixel, line[pixel]);
          ClearRowPadding(row + i);
        }
        records.push_back(0);
        return Expect("T_PutBitmapRowCompressed",
                      T_PutBitmapRowCompressed(&record_, nullptr, records.data(), row, rows), SUCCESS);
      }
      default: {
        line.resize(inside);
        for (size_t i = 0; i < inside; ++i) line[i] = random_.OneIn(3);
        const Bytes record = SlowRecord(line);
        // Compressed rows take the stretch to the pixel, the others in whole bytes.
        const bool compressed = RulesOf(record_) == Rules::kCompressed;
        const uint32_t first = compressed ? column : column / 8 * 8;
        const uint32_t end = compressed ? inside : (inside + 7) / 8 * 8;
        for (uint32_t i = 0; i < end; ++i) model_.SetPixel(row, first + i, i < inside && line[i]);
        return Expect("T_PutBitmapRowColCompressed",
                      T_PutBitmapRowColCompressed(&record_, nullptr, record.data(), row, column, pixels),
                      (inside + 7) / 8);
      }
    }
  }
  void ClearRowPadding(uint32_t row) {
    for (uint32_t pixel = static_cast<uint32_t>(shape_.width); pixel < shape_.RowBytes() * 8; ++pixel)
      model_.SetPixel(row, pixel, false);
  }

  void CompareAll() {
    Bytes rows;
    if (const std::string problem = ReadPixels(record_, rows); !problem.empty() && wrong_.empty()) wrong_ = problem;
    ExpectBytes("reading all rows", rows, model_.Rows());
  }

  uint64_t seed_;
  Random random_;
  Shape shape_;
  Model model_;
  Picture picture_;
  BitmapHandle& record_ = picture_.record;
  std::string wrong_;
  uint64_t digest_ = 0xCBF29CE484222325u;
};

}  // namespace

std::string RunSequence(Kind kind, uint64_t seed, int steps, uint64_t& digest) {
  Sequence sequence(kind, seed);
  const std::string wrong = sequence.Run(steps, digest);
  return wrong.empty() ? wrong : std::string(NameOf(kind)) + ": " + wrong;
}

}  // namespace tarn::engine
