// tarn info: what files hold, and what they become in memory.

#include <cstdio>

#include "Command.h"
#include "Files.h"

namespace tarn::tool {
namespace {

/// A report of one file, several lines.
std::string Describe(const std::string& input, const ReadOptions& options, Console& console) {
  InputFile file(input);
  const std::unique_ptr<Reader> reader = OpenPicture(file, console, options.page, options.storage.maxMemory);
  const Picture& picture = reader->Info();
  RequireWithin(options.storage, picture, input);
  const Bitmap bitmap(picture, options.storage, input);
  const uint64_t rowBytes = bitmap.BytesPerLine();

  std::string report;
  const auto line = [&](const char* label, const std::string& text) {
    report += std::string("  ") + label + std::string(12 - std::char_traits<char>::length(label), ' ') + text + "\n";
  };
  line("format", reader->Source());
  line("size", std::to_string(picture.width) + " x " + std::to_string(picture.height) + " pixels");
  line("depth", picture.depth);
  line("resolution", picture.xDpi == 0 || picture.yDpi == 0
                         ? "not stated"
                         : std::to_string(picture.xDpi) + " x " + std::to_string(picture.yDpi) + " dots per inch");
  if (picture.orientation != 1) line("orientation", std::to_string(picture.orientation));
  if (!picture.profile.empty()) line("profile", "ICC, " + std::to_string(picture.profile.size()) + " bytes");
  line("bitmap", std::to_string(picture.bits) + (picture.bits == 1 ? " bit a pixel, " : " bits a pixel, ") +
                     SamplesOf(LayoutOf(picture)) + ", " + std::to_string(rowBytes) + " bytes a row");
  line("memory", std::to_string(rowBytes * static_cast<uint64_t>(picture.height)) + " bytes");
  line("storage", bitmap.StorageName());
  return report;
}

class InfoCommand final : public Command {
 public:
  const char* Name() const override { return "info"; }
  const char* Help() const override { return "tell what files hold, and what they become in memory"; }

  void AddOptions(Options& options) override {
    options.Arguments("files", files_, "FILE", "PNG, JPEG, TIFF or BMP files; - is standard input");
    reading_.AddPage(options);
    reading_.AddLimits(options);
  }
  void CheckOptions() const override { reading_.Check(); }

  int Run(Console& console) override {
    int result = 0;
    bool first = true;
    for (const std::string& file : files_) {
      const int ended = Attempt(console, file, [&] {
        const std::string report = Describe(file, reading_, console);
        std::printf("%s%s\n%s", first ? "" : "\n", file == kStandardStream ? kStandardInput : file.c_str(),
                    report.c_str());
        first = false;
        return static_cast<int>(Exit::kOk);
      });
      if (result == 0) result = ended;
    }
    FinishOutput();
    return result;
  }

 private:
  std::vector<std::string> files_;
  ReadOptions reading_;
};

}  // namespace

std::unique_ptr<Command> MakeInfo() { return std::make_unique<InfoCommand>(); }

}  // namespace tarn::tool
