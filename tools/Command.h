#pragma once
// What a command is. Every command has a file of its own, Command<Name>.cpp, and one line in the list at the end.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Console.h"
#include "Failure.h"
#include "Layout.h"
#include "Options.h"
#include "Picture.h"
#include "PictureFile.h"

namespace tarn::tool {

class Command {
 public:
  virtual ~Command() = default;
  virtual const char* Name() const = 0;
  virtual const char* Help() const = 0;
  virtual void AddOptions(Options& options) = 0;
  /// Throws Failure (Exit::kUsage) for options that do not go together. Opens no file.
  virtual void CheckOptions() const {}
  /// The file to name when a failure does not say where it happened.
  virtual std::string Subject() const { return ""; }
  /// @return the exit code; throws Failure.
  virtual int Run(Console& console) = 0;
};

/// Runs a step and turns whatever it throws into one line and an exit code.
int Attempt(Console& console, const std::string& file, const std::function<int()>& step);

/// Flushes what a command has printed; throws Failure when it could not be written.
void FinishOutput();

// ---- Reading -------------------------------------------------------------------------------------------------------

/// The options of every command that reads a picture.
struct ReadOptions {
  int page = 0;  // 0: the only one
  StorageChoice storage;

  void AddPage(Options& options);
  void AddLimits(Options& options);
  void AddKind(Options& options);
  void Check() const;
};

/// A picture in memory, and what its file said about it.
struct Loaded {
  Picture picture;
  std::unique_ptr<Bitmap> bitmap;
};

/// Reads the page that the reader is at. `name` is told the user.
Loaded ReadBitmap(Reader& reader, const StorageChoice& storage, const std::string& name, Console& console);
Loaded Load(const std::string& file, const ReadOptions& options, Console& console);

// ---- From a file to a file -----------------------------------------------------------------------------------------

/// The way of a picture from a file into memory, through some work, and into another file. The result is brought into
/// a layout that files have (FileLayout) and written whole or not at all.
struct FileToFile {
  /// What the work will make of the picture, from what its file says: no row has been read yet, so that a result that
  /// cannot be written is refused at once. Throws Failure.
  using Plan = std::function<Shape(const Picture& picture)>;
  /// The bitmap may be changed or replaced; throws Failure.
  using Work = std::function<void(std::unique_ptr<Bitmap>& bitmap)>;
  using Bitmaps = std::vector<std::unique_ptr<Bitmap>>;
  /// Of all pages at once.
  using WorkOnAll = std::function<void(Bitmaps& bitmaps)>;

  std::string input;
  std::string output;
  ReadOptions reading;
  WriteOptions writing;
  int quality = 0;  // 0: not given

  /// All options but the names of the files.
  void AddOptions(Options& options, bool onePage = true);
  void Check() const;
  /// One page: the only one, or the one chosen.
  void Run(const Plan& plan, const Work& work, Console& console);
  /// All pages, or the one chosen. The plan is asked for each.
  void RunAll(const Plan& plan, const WorkOnAll& work, Console& console);

 private:
  void RunPages(int page, const Plan& plan, const WorkOnAll& work, Console& console);
};

/// "a.tif, page 2", or the file alone where it has one page.
std::string NameOfPage(const std::string& file, const Reader& reader);

/// A command that is such a way: its own part is its options, Plan and Apply.
class PictureCommand : public Command {
 public:
  void AddOptions(Options& options) final;
  void CheckOptions() const final;
  std::string Subject() const final { return way_.input; }
  int Run(Console& console) final;

 protected:
  /// Arguments come after IN and OUT.
  virtual void AddOwnOptions(Options&) {}
  virtual void CheckOwnOptions() const {}
  /// FileToFile::Plan and Work.
  virtual Shape Plan(const Picture& picture) = 0;
  virtual void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) = 0;

  const std::string& Input() const noexcept { return way_.input; }
  const StorageChoice& Storage() const noexcept { return way_.reading.storage; }

 private:
  FileToFile way_;
};

/// Shows the progress of the library's own operations while it lives.
class LibraryProgress {
 public:
  LibraryProgress(const Console& console, std::string_view label);
  ~LibraryProgress();
  LibraryProgress(const LibraryProgress&) = delete;
  LibraryProgress& operator=(const LibraryProgress&) = delete;

 private:
  static int32_t Step(int32_t percent, void* self) noexcept;

  Progress progress_;
  int32_t shown_ = 0;  // percent
  T_StatusCallback status_ = nullptr;
  void* statusData_ = nullptr;
  T_StatusCallback copyStatus_ = nullptr;
  void* copyStatusData_ = nullptr;
};

// ---- All of them ---------------------------------------------------------------------------------------------------

std::unique_ptr<Command> MakeInfo();
std::unique_ptr<Command> MakeConvert();
std::unique_ptr<Command> MakeColors();
std::unique_ptr<Command> MakeCountColors();
std::unique_ptr<Command> MakeCrop();
std::unique_ptr<Command> MakePages();
std::unique_ptr<Command> MakePalette();
std::unique_ptr<Command> MakePixel();
std::unique_ptr<Command> MakeDiff();

inline std::vector<std::unique_ptr<Command>> AllCommands() {
  std::vector<std::unique_ptr<Command>> commands;
  for (const auto make :
       {MakeInfo, MakeConvert, MakeColors, MakeCountColors, MakeCrop, MakePages, MakePalette, MakePixel, MakeDiff}) {
    commands.push_back(make());
  }
  return commands;
}

}  // namespace tarn::tool
