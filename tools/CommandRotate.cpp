// tarn rotate: a picture turned by any angle.

#include "Command.h"
#include "Rotation.h"
#include "View.h"

namespace tarn::tool {
namespace {

class RotateCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "rotate"; }
  const char* Help() const override { return "turn a picture by any angle"; }

  void AddOwnOptions(Options& options) override {
    options.Argument("angle", text_, "ANGLE",
                     "degrees clockwise, in steps of 0.01; negative ones turn it the other way");
    rotation_.AddOptions(options);
  }
  void CheckOwnOptions() const override {
    int32_t angle = 0;
    if (!ParseAngle(text_, angle)) throw Failure(Exit::kUsage, "", "'" + text_ + "' is not an angle in degrees");
    rotation_.fill.Check();
  }

  Shape Plan(const Shape& before) override {
    ParseAngle(text_, angle_);
    return rotation_.After(before, angle_);
  }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    rotation_.Apply(*bitmap, angle_, Input(), console);
  }

 private:
  std::string text_;
  int32_t angle_ = 0;  // hundredths of a degree
  Rotation rotation_;
};

}  // namespace

std::unique_ptr<Command> MakeRotate() { return std::make_unique<RotateCommand>(); }

}  // namespace tarn::tool
