// OpenCV: cvtColor, convertTo, applyColorMap, clone, flip, rotate, warpAffine, warpPerspective.

#include <opencv2/core.hpp>
#include <opencv2/core/version.hpp>
#include <opencv2/imgproc.hpp>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

/// -1 for what it has no type for.
int TypeOf(Format format) {
  if (format == kGray8 || format == kPalette8) return CV_8UC1;
  if (format == kGray16) return CV_16UC1;
  switch (format.bits) {
    case 16:
      return CV_8UC2;  // 5-5-5
    case 24:
      return CV_8UC3;
    case 32:
      return CV_8UC4;
    case 48:
      return CV_16UC3;
    case 64:
      return CV_16UC4;
    default:
      return -1;
  }
}

struct ColorCode {
  Format from, to;
  int code;
};
constexpr ColorCode kCodes[] = {
    {kBgr24, kGray8, cv::COLOR_BGR2GRAY},   {kBgr32, kGray8, cv::COLOR_BGRA2GRAY},
    {kBgr24, kBgr32, cv::COLOR_BGR2BGRA},   {kBgr32, kBgr24, cv::COLOR_BGRA2BGR},
    {kGray8, kBgr24, cv::COLOR_GRAY2BGR},   {kGray8, kBgr32, cv::COLOR_GRAY2BGRA},
    {kBgr24, kBgr16, cv::COLOR_BGR2BGR555}, {kBgr32, kBgr16, cv::COLOR_BGRA2BGR555},
    {kBgr16, kBgr24, cv::COLOR_BGR5552BGR}, {kBgr16, kBgr32, cv::COLOR_BGR5552BGRA},
    {kBgr24, kRgb24, cv::COLOR_BGR2RGB},    {kBgr32, kRgb32, cv::COLOR_BGRA2RGBA},
    {kBgr48, kRgb48, cv::COLOR_BGR2RGB},    {kBgr64, kRgb64, cv::COLOR_BGRA2RGBA},
};

struct Scale {
  Format from, to;
  int depth;
  double factor;
};
constexpr Scale kScales[] = {
    {kBgr24, kBgr48, CV_16U, 257},
    {kBgr48, kBgr24, CV_8U, 1.0 / 257},
    {kGray8, kGray16, CV_16U, 257},
    {kGray16, kGray8, CV_8U, 1.0 / 257},
};

cv::Mat MatOf(const Pixels& pixels) {
  cv::Mat mat(pixels.height, pixels.width, TypeOf(pixels.format));
  for (int32_t row = 0; row < pixels.height; ++row)
    std::memcpy(mat.ptr(row), pixels.Row(row), static_cast<size_t>(pixels.width) * mat.elemSize());
  return mat;
}

Pixels PixelsOf(const cv::Mat& mat, Format format) {
  Pixels pixels(format, mat.cols, mat.rows);
  for (int32_t row = 0; row < mat.rows; ++row)
    std::memcpy(pixels.Row(row), mat.ptr(row), static_cast<size_t>(mat.cols) * mat.elemSize());
  return pixels;
}

class OpenCv : public Peer {
 public:
  OpenCv() { cv::setNumThreads(1); }
  std::string Name() const override { return "OpenCV"; }

  PeerJob Convert(const Pixels& source, Format target, const Palette&) override {
    if (TypeOf(source.format) < 0 || TypeOf(target) < 0) return {};
    const auto from = std::make_shared<cv::Mat>();
    const auto to = std::make_shared<cv::Mat>();
    PeerJob job;
    for (const ColorCode& known : kCodes) {
      if (known.from == source.format && known.to == target)
        job = {"cvtColor", [=, code = known.code] { cv::cvtColor(*from, *to, code); }, {}};
    }
    for (const Scale& known : kScales) {
      if (known.from == source.format && known.to == target)
        job = {"convertTo", [=, &known] { from->convertTo(*to, known.depth, known.factor); }, {}};
    }
    if (source.format == kPalette8 && target == kBgr24) {
      cv::Mat colors(256, 1, CV_8UC3);
      for (int i = 0; i < 256; ++i) std::memcpy(colors.ptr(i), source.Entries() + i, 3);
      job = {"applyColorMap", [=] { cv::applyColorMap(*from, *to, colors); }, {}};
    }
    if (!job.pass) return {};
    *from = MatOf(source);
    job.result = [=] { return PixelsOf(*to, target); };
    return job;
  }

  PeerJob Combine(const Pixels& target, const Pixels& source, uint32_t operation) override {
    if (TypeOf(target.format) < 0) return {};
    const auto to = std::make_shared<cv::Mat>(MatOf(target));
    const auto from = std::make_shared<cv::Mat>(MatOf(source));
    const double whole = target.format.bits >= 48 ? 65535 : 255;
    switch (operation) {
      case T_COMBINE_COPY:
        return {"copyTo", [=] { from->copyTo(*to); }, {}};
      case T_COMBINE_XOR:
        return {"bitwise_xor", [=] { cv::bitwise_xor(*to, *from, *to); }, {}};
      case T_COMBINE_ADD:
        return {"add", [=] { cv::add(*to, *from, *to); }, {}};
      case T_COMBINE_AVERAGE:
        return {"addWeighted", [=] { cv::addWeighted(*to, 0.5, *from, 0.5, 0, *to); }, {}};
      case T_COMBINE_MULTIPLY:
        return {"multiply", [=] { cv::multiply(*to, *from, *to, 1 / whole); }, {}};
      default:
        return {};
    }
  }

  PeerJob Warp(const Pixels& target, const Pixels& source, const double (&corners)[4][2], bool bilinear) override {
    if (TypeOf(target.format) < 0) return {};
    const auto to = std::make_shared<cv::Mat>(MatOf(target));
    const auto from = std::make_shared<cv::Mat>(MatOf(source));
    cv::Point2f ends[4];
    const auto width = static_cast<float>(source.width), height = static_cast<float>(source.height);
    cv::Point2f begins[4] = {{0, 0}, {width, 0}, {width, height}, {0, height}};
    const cv::Point2f half(0.5F, 0.5F);  // places count from the centres of pixels
    for (int i = 0; i < 4; ++i) {
      ends[i] = cv::Point2f(static_cast<float>(corners[i][0]), static_cast<float>(corners[i][1])) - half;
      begins[i] -= half;
    }
    const cv::Mat move = cv::getPerspectiveTransform(begins, ends);
    const int flags = bilinear ? cv::INTER_LINEAR : cv::INTER_NEAREST;
    return {"warpPerspective",
            [=] { cv::warpPerspective(*from, *to, move, to->size(), flags, cv::BORDER_TRANSPARENT); },
            {}};
  }

  PeerJob ConvertInPlace(const Pixels& source, Format target) override {
    for (const ColorCode& known : kCodes) {
      if (known.from != source.format || known.to != target) continue;
      const auto mat = std::make_shared<cv::Mat>(MatOf(source));
      return {"cvtColor in place", [=, code = known.code] { cv::cvtColor(*mat, *mat, code); }, {}};
    }
    return {};
  }

  std::vector<PeerJob> Turn(const Pixels& source, const TurnTask& task) override {
    if (TypeOf(source.format) < 0) return {};
    const auto from = std::make_shared<cv::Mat>(MatOf(source));
    const auto to = std::make_shared<cv::Mat>();
    const auto result = [=, format = source.format] { return PixelsOf(*to, format); };
    using Way = TurnTask::Way;
    switch (task.way) {
      case Way::kFlip:
      case Way::kMirror:
      case Way::kHalf: {
        const int code = task.way == Way::kFlip ? 0 : task.way == Way::kMirror ? 1 : -1;
        return {{"flip in place", [=] { cv::flip(*from, *from, code); },
                 [=, format = source.format] { return PixelsOf(*from, format); }}};
      }
      case Way::kQuarter:
        return {{"rotate", [=] { cv::rotate(*from, *to, cv::ROTATE_90_CLOCKWISE); }, result}};
      case Way::kNearest:
      case Way::kBilinear: {
        cv::Mat move =
            cv::getRotationMatrix2D({(source.width - 1) / 2.0F, (source.height - 1) / 2.0F}, -task.degrees, 1);
        move.at<double>(0, 2) += (task.width - source.width) / 2.0;
        move.at<double>(1, 2) += (task.height - source.height) / 2.0;
        const int flags = task.way == Way::kNearest ? cv::INTER_NEAREST : cv::INTER_LINEAR;
        const cv::Size size(task.width, task.height);
        return {{"warpAffine", [=] { cv::warpAffine(*from, *to, move, size, flags); }, result}};
      }
      default:
        return {};
    }
  }

  std::vector<PeerJob> Resize(const Pixels& source, const Scaling& scaling) override {
    using Way = Scaling::Way;
    if (TypeOf(source.format) < 0 || scaling.way == Way::kInk) return {};
    const int method = scaling.way == Way::kNearest  ? cv::INTER_NEAREST
                       : scaling.way == Way::kBox    ? cv::INTER_AREA
                       : scaling.way == Way::kLinear ? cv::INTER_LINEAR
                                                     : cv::INTER_CUBIC;
    const auto from = std::make_shared<cv::Mat>(MatOf(source));
    const auto to = std::make_shared<cv::Mat>();
    const cv::Size size(scaling.width, scaling.height);
    return {{"resize", [=] { cv::resize(*from, *to, size, 0, 0, method); },
             [=, format = source.format] { return PixelsOf(*to, format); }}};
  }

  std::vector<PeerJob> Copy(const Pixels& source, int32_t column) override {
    if (TypeOf(source.format) < 0) return {};
    const auto mat = std::make_shared<cv::Mat>(MatOf(source));
    const auto made = std::make_shared<cv::Mat>();
    return {{"clone, fresh",
             [=] {
               *made = cv::Mat();  // frees the last one
               *made = mat->colRange(column, mat->cols).clone();
             },
             [=, format = source.format] { return PixelsOf(*made, format); }}};
  }
};

}  // namespace

std::unique_ptr<Peer> OpenCvPeer() { return std::make_unique<OpenCv>(); }

}  // namespace bench
