// tarn deskew: a scanned page with its lines made level.

#include <cstdio>
#include <cstdlib>

#include "Command.h"
#include "Files.h"
#include "Rotation.h"
#include "Skew.h"

namespace tarn::tool {
namespace {

class DeskewCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "deskew"; }
  const char* Help() const override { return "make the lines of a scanned page level, and tell how they were"; }

  void AddOptions(Options& options) override {
    options.Argument("in", way_.input, "IN", kInputHelp);
    options.OptionalArgument("out", way_.output, "OUT", kOutputHelp);
    AddOwnOptions(options);
    way_.AddOptions(options);
  }
  void AddOwnOptions(Options& options) override {
    options.Flag("--angle-only", angleOnly_, "tell the angle and write nothing");
    rotation_.AddOptions(options);
  }
  void CheckOptions() const override {
    if (angleOnly_ != way_.output.empty()) {
      throw Failure(Exit::kUsage, "", "one of OUT and --angle-only is needed");
    }
    if (!angleOnly_) return PictureCommand::CheckOptions();
    way_.reading.Check();
    CheckOwnOptions();
  }
  void CheckOwnOptions() const override { rotation_.fill.Check(); }

  int Run(Console& console) override {
    if (!angleOnly_) return PictureCommand::Run(console);
    Loaded loaded = Load(way_.input, way_.reading, console);
    Apply(loaded.bitmap, console);
    return static_cast<int>(Exit::kOk);
  }

  Shape Plan(const Shape& before) override { return angleOnly_ ? before : rotation_.After(before, 1); }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    MakeUpright(bitmap->Handle(), Input());
    const int32_t angle = SkewOf(*bitmap, Input());
    // The angle goes where the picture does not.
    std::fprintf(way_.output == kStandardStream ? stderr : stdout, "%s%d.%02d\n", angle < 0 ? "-" : "",
                 std::abs(angle) / 100, std::abs(angle) % 100);
    FinishOutput();
    if (angle != 0 && !angleOnly_) rotation_.Apply(*bitmap, -angle, Input(), console);
  }

 private:
  bool angleOnly_ = false;
  Rotation rotation_;
};

}  // namespace

std::unique_ptr<Command> MakeDeskew() { return std::make_unique<DeskewCommand>(); }

}  // namespace tarn::tool
