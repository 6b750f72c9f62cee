#include "Command.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <system_error>

#include "Files.h"

namespace tarn::tool {

int Attempt(Console& console, const std::string& file, const std::function<int()>& step) {
  const auto report = [&](Exit exit, const std::string& name, const char* reason) {
    console.Error(name, reason);
    return static_cast<int>(exit);
  };
  try {
    return step();
  } catch (const Failure& failure) {
    return report(failure.ExitCode(), failure.File(), failure.what());
  } catch (const std::bad_alloc&) {
    return report(Exit::kMemory, file, "no memory");
  } catch (const std::length_error&) {
    return report(Exit::kMemory, file, "no memory");
  } catch (const std::exception& error) {
    return report(Exit::kInternal, file, error.what());
  }
}

void FinishOutput() {
  errno = 0;
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return;
  throw Failure(Exit::kOutput, kStandardOutput,
                "cannot write" + (errno != 0 ? ": " + std::generic_category().message(errno) : ""));
}

// ---- Reading -------------------------------------------------------------------------------------------------------

void ReadOptions::AddPage(Options& options) {
  options.Number("--page", page, 1, 65535, "page of a TIFF file with several, counted from 1");
}

void ReadOptions::AddLimits(Options& options) {
  options.Size("--max-pixels", storage.maxPixels,
               "largest picture that is read, in pixels; 256M unless told, any with tiled and disk storage");
  options.Size("--tile-size", storage.tileBytes, "bytes a tile; K, M and G count in 1024s");
  options.Size("--max-memory", storage.maxMemory,
               "bytes of a picture's pixels in memory; what is more goes to temporary files, or is refused "
               "with memory storage");
}

void ReadOptions::AddKind(Options& options) {
  options.Choice<StorageKind>(
      "--storage", storage.kind,
      {{"auto", StorageKind::kAuto},
       {"memory", StorageKind::kMemory},
       {"tiled", StorageKind::kTiled},
       {"disk", StorageKind::kDisk},
       {"compressed", StorageKind::kCompressed},
       {"super", StorageKind::kSuper}},
      "KIND", "auto, memory, tiled, disk, compressed (1-bit pictures) or super (1, 8 and 24 bits, without loss)");
}

void ReadOptions::Check() const {
  const bool tiles = storage.kind == StorageKind::kAuto || storage.kind == StorageKind::kTiled;
  if (storage.tileBytes != 0 && !tiles) throw Failure(Exit::kUsage, "", "--tile-size goes with auto or tiled storage");
  if (storage.maxMemory != 0 && storage.kind != StorageKind::kAuto && storage.kind != StorageKind::kMemory) {
    throw Failure(Exit::kUsage, "", "--max-memory goes with auto or memory storage");
  }
  if (storage.maxMemory != 0 && storage.tileBytes > storage.maxMemory) {
    throw Failure(Exit::kUsage, "", "--tile-size is larger than --max-memory");
  }
}

Loaded ReadBitmap(Reader& reader, const StorageChoice& storage, const std::string& file, Console& console) {
  RequireWithin(storage, reader.Info(), file);
  Loaded loaded;
  loaded.bitmap = std::make_unique<Bitmap>(reader.Info(), PassingStorage(storage, reader.Info().bits), file);
  const std::string name = loaded.bitmap->StorageName();
  console.Note(file, "stored in " + name);
  if (storage.kind == StorageKind::kTiled && name.find("tile") == std::string::npos) {
    console.Note(file, "the picture is not larger than a tile");
  }
  Progress progress(console, file, reader.Steps(), "reading");
  reader.ReadInto(*loaded.bitmap, progress);
  loaded.picture = reader.Info();  // the orientation may have come after the rows
  return loaded;
}

Loaded Load(const std::string& file, const ReadOptions& options, Console& console) {
  InputFile input(file);
  const std::unique_ptr<Reader> reader = OpenPicture(input, console, options.page, options.storage.maxMemory);
  console.Note(file, reader->Source() + ", " + reader->Info().depth);
  RequireStorable(options.storage, LayoutOf(reader->Info()), file);
  return ReadBitmap(*reader, options.storage, file, console);
}

// ---- From a file to a file -----------------------------------------------------------------------------------------

void FileToFile::AddOptions(Options& options, bool onePage) {
  reading.AddKind(options);
  options.Choice<std::optional<Format>>(
      "--format", writing.format,
      {{"png", Format::kPng}, {"jpeg", Format::kJpeg}, {"tiff", Format::kTiff}, {"bmp", Format::kBmp}}, "FORMAT",
      "of OUT: png, jpeg, tiff or bmp, else as its extension says");
  options.Choice<TiffCompression>(
      "--compression", writing.compression,
      {{"none", TiffCompression::kNone},
       {"lzw", TiffCompression::kLzw},
       {"deflate", TiffCompression::kDeflate},
       {"packbits", TiffCompression::kPackBits},
       {"g4", TiffCompression::kG4}},
      "SCHEME", "of TIFF: none, lzw, deflate, packbits or g4 (1-bit pictures); G4 for black and white, else Deflate");
  options.Number("--quality", quality, 1, 100, "of JPEG, 1 to 100, else 90");
  if (onePage) reading.AddPage(options);
  reading.AddLimits(options);
}

void FileToFile::Check() const {
  reading.Check();
  const Format format = FormatOf(output, writing);
  if (quality != 0 && format != Format::kJpeg) throw Failure(Exit::kUsage, "", "--quality goes with JPEG output");
  if (writing.compression != TiffCompression::kDefault && format != Format::kTiff) {
    throw Failure(Exit::kUsage, "", "--compression goes with TIFF output");
  }
}

void FileToFile::Run(bool allPages, const Plan& plan, const Work& work, Console& console) {
  const int page = allPages && reading.page == 0 ? kEveryPage : reading.page;
  if (quality != 0) writing.jpegQuality = quality;
  InputFile source(input);
  std::unique_ptr<Reader> reader = OpenPicture(source, console, page, reading.storage.maxMemory);
  const int count = page == kEveryPage ? reader->Pages() : 1;
  const auto turnTo = [&](int number) {
    if (count > 1) reader->TurnTo(number);
    return count > 1 ? NameOfPage(input, *reader) : input;
  };
  PictureFile target(output, writing, reading.storage, false, console);
  for (int number = 1; number <= count; ++number) {
    const std::string name = turnTo(number);
    console.Note(input, reader->Source() + ", " + reader->Info().depth);
    const Picture& info = reader->Info();
    RequireWithin(reading.storage, info, name);
    const Shape shape = plan({info.width, info.height, LayoutOf(info), info.orientation});
    RequireStorable(reading.storage, shape.layout, name);
    target.Expect(reader->Info(), shape);
  }
  target.Create();  // before the work, so that a place that cannot be written shows at once

  std::vector<Picture> read;
  Bitmaps bitmaps;
  for (int number = 1; number <= count; ++number) {
    const std::string name = turnTo(number);
    Loaded loaded = ReadBitmap(*reader, reading.storage, name, console);
    read.push_back(std::move(loaded.picture));
    bitmaps.push_back(std::move(loaded.bitmap));
  }
  reader.reset();
  work(bitmaps);
  for (size_t i = 0; i < bitmaps.size(); ++i) target.Add(read[i], std::move(bitmaps[i]));
  if (commit) {
    commit(target.Release());
  } else {
    target.Commit();
  }
}

std::string NameOfPage(const std::string& file, const Reader& reader) {
  return reader.Pages() > 1 ? file + ", page " + std::to_string(reader.Page()) : file;
}

void PictureCommand::AddOptions(Options& options) {
  options.Argument(
      "in", way_.input, "IN",
      TakesAllPages() ? "PNG, JPEG, TIFF or BMP file, of several pages all; - is standard input" : kInputHelp);
  options.Argument("out", way_.output, "OUT", kOutputHelp);
  AddOwnOptions(options);
  way_.AddOptions(options);
}

void PictureCommand::CheckOptions() const {
  way_.Check();
  CheckOwnOptions();
}

int PictureCommand::Run(Console& console) {
  const auto plan = [&](const Shape& before) { return Plan(before); };
  const auto work = [&](FileToFile::Bitmaps& bitmaps) { ApplyToAll(bitmaps, console); };
  way_.Run(TakesAllPages(), plan, work, console);
  return static_cast<int>(Exit::kOk);
}

Loaded PictureCommand::LoadSecond(const std::string& file, Console& console, uint32_t perspective) const {
  ReadOptions reading;
  reading.storage = Storage(0);
  Loaded loaded = Load(file, reading, console);
  BitmapHandle& bitmap = loaded.bitmap->Handle();
  if (perspective != 0 && perspective != bitmap.ViewPerspective) {
    const int32_t status = T_ChangeBitmapViewPerspective(nullptr, &bitmap, sizeof bitmap, perspective);
    if (status != SUCCESS) ThrowStatus(status, file, "turning it");
  }
  return loaded;
}

void PictureCommand::ApplyToAll(FileToFile::Bitmaps& bitmaps, Console& console) {
  for (std::unique_ptr<Bitmap>& bitmap : bitmaps) Apply(bitmap, console);
}

// ---- Progress ------------------------------------------------------------------------------------------------------

LibraryProgress::LibraryProgress(const Console& console, std::string_view file, std::string_view operation)
    : progress_(console, file, 100, operation) {
  T_SetStatusCallBack(Step, this, &status_, &statusData_);
  T_SetCopyStatusCallBack(Step, this, &copyStatus_, &copyStatusData_);
}

LibraryProgress::~LibraryProgress() {
  T_SetStatusCallBack(status_, statusData_, nullptr, nullptr);
  T_SetCopyStatusCallBack(copyStatus_, copyStatusData_, nullptr, nullptr);
}

int32_t LibraryProgress::Step(int32_t percent, void* self) noexcept {
  auto* const progress = static_cast<LibraryProgress*>(self);
  for (; progress->shown_ < percent; ++progress->shown_) progress->progress_.Step();
  return SUCCESS;
}

// ---- All of them ---------------------------------------------------------------------------------------------------

std::vector<std::unique_ptr<Command>> AllCommands() {
  std::vector<std::unique_ptr<Command>> commands;
  for (const auto make :
       {MakeInfo,    MakeConvert,  MakeColors, MakeCountColors, MakeCrop,  MakeResize,  MakeRotate, MakeFlip,
        MakeReverse, MakeOrient,   MakeShear,  MakeTrim,        MakeAlpha, MakeDeskew,  MakeFill,   MakeCombine,
        MakeOverlay, MakeScramble, MakeRun,    MakeBatch,       MakePages, MakePalette, MakePixel,  MakeDiff}) {
    commands.push_back(make());
  }
  return commands;
}

}  // namespace tarn::tool
