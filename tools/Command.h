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

/// Arguments that most commands have.
constexpr char kInputHelp[] = "PNG, JPEG, TIFF or BMP file, recognised by its content; - is standard input";
constexpr char kOutputHelp[] = "file to write, .png, .jpg, .tif or .bmp; - is standard output, of the --format told";

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
  using Plan = std::function<Shape(const Shape& before)>;
  using Bitmaps = std::vector<std::unique_ptr<Bitmap>>;
  /// On all pages at once. Bitmaps may be changed or replaced; throws Failure.
  using Work = std::function<void(Bitmaps& bitmaps)>;

  std::string input;
  std::string output;
  ReadOptions reading;
  WriteOptions writing;
  int quality = 0;  // 0: not given
  /// Gets the finished file and commits it, where it is not Run that does.
  std::function<void(std::unique_ptr<OutputFile> made)> commit;

  /// All options but the names of the files.
  void AddOptions(Options& options, bool onePage = true);
  void Check() const;
  /// The plan is asked for each page.
  /// @param allPages unless one is chosen; else a file with several is refused
  void Run(bool allPages, const Plan& plan, const Work& work, Console& console);
};

/// "a.tif, page 2", or the file alone where it has one page.
std::string NameOfPage(const std::string& file, const Reader& reader);

/// A command that is such a way: its own part is its options, Plan and Apply. It is also a step that others can take on
/// their way (tarn run).
class PictureCommand : public Command {
 public:
  void AddOptions(Options& options) override;
  void CheckOptions() const override;
  std::string Subject() const final { return way_.input; }
  int Run(Console& console) override;

  /// The step belongs to a way of somebody else's.
  void Join(const FileToFile& way) { way_ = way; }
  /// Arguments come after IN and OUT.
  virtual void AddOwnOptions(Options&) {}
  virtual void CheckOwnOptions() const {}
  /// Whether all pages of a file are worked on, not the one that is chosen.
  virtual bool TakesAllPages() const { return false; }
  /// FileToFile::Plan; called for each page.
  virtual Shape Plan(const Shape& before) = 0;
  /// FileToFile::Work; each page by itself unless said otherwise.
  virtual void ApplyToAll(FileToFile::Bitmaps& bitmaps, Console& console);

 protected:
  virtual void Apply(std::unique_ptr<Bitmap>&, Console&) {}

  const std::string& Input() const noexcept { return way_.input; }
  /// Of the bitmap that is made of one with so many bits; compressed rows are for 1-bit pictures, and a step's result
  /// need not be the last one.
  StorageChoice Storage(int32_t bits) const { return PassingStorage(way_.reading.storage, bits); }
  /// Another picture that the work needs, turned to be stored as one of this view perspective; 0 leaves it as it is.
  Loaded LoadSecond(const std::string& file, Console& console, uint32_t perspective = 0) const;
  /// Throws Failure when the library's answer is not success.
  void Require(int32_t status, const char* doing) const {
    if (status != SUCCESS) ThrowStatus(status, way_.input, doing);
  }

  FileToFile way_;
};

/// Shows the progress of the library's own operations while it lives.
class LibraryProgress {
 public:
  /// @param operation in a word or two: "resizing"
  LibraryProgress(const Console& console, std::string_view file, std::string_view operation);
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
std::unique_ptr<Command> MakeResize();
std::unique_ptr<Command> MakeRotate();
std::unique_ptr<Command> MakeFlip();
std::unique_ptr<Command> MakeReverse();
std::unique_ptr<Command> MakeOrient();
std::unique_ptr<Command> MakeShear();
std::unique_ptr<Command> MakeTrim();
std::unique_ptr<Command> MakeAlpha();
std::unique_ptr<Command> MakeDeskew();
std::unique_ptr<Command> MakeFill();
std::unique_ptr<Command> MakeCombine();
std::unique_ptr<Command> MakeOverlay();
std::unique_ptr<Command> MakeScramble();
std::unique_ptr<Command> MakeRun();
std::unique_ptr<Command> MakeBatch();
std::unique_ptr<Command> MakePages();
std::unique_ptr<Command> MakePalette();
std::unique_ptr<Command> MakePixel();
std::unique_ptr<Command> MakeDiff();

std::vector<std::unique_ptr<Command>> AllCommands();

}  // namespace tarn::tool
