// tarn pages: the pages of a TIFF file, listed, taken out, put in, removed and moved.

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>

#include "Command.h"
#include "Files.h"

namespace tarn::tool {
namespace {

constexpr int kLast = std::numeric_limits<int>::max();

/// First and last page, counted from 1; kLast: as many as there are.
struct PageRange {
  int first = 1;
  int last = 1;
};

bool ParseNumber(const std::string& text, int& number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end && number >= 1;
}

/// "3", "2-4" or "2-".
bool ParseRange(const std::string& text, PageRange& range) {
  const size_t dash = text.find('-');
  if (!ParseNumber(text.substr(0, dash), range.first)) return false;
  range.last = dash == std::string::npos ? range.first : kLast;
  if (dash != std::string::npos && dash + 1 < text.size() && !ParseNumber(text.substr(dash + 1), range.last)) {
    return false;
  }
  return range.last >= range.first;
}

/// "3" or "end".
bool ParsePosition(const std::string& text, int& position) {
  position = kLast;
  return text == "end" || ParseNumber(text, position);
}

/// A file whose pages are used, and a page of it.
struct Source {
  Source(const std::string& name, uint64_t memory, Console& console)
      : input(name), reader(OpenPicture(input, console, kEveryPage, memory)) {}

  InputFile input;
  std::unique_ptr<Reader> reader;
};
struct PageOf {
  Source* source;
  int page;
};
using PageList = std::vector<PageOf>;

PageList PagesOf(Source& source) {
  PageList pages;
  for (int page = 1; page <= source.reader->Pages(); ++page) pages.push_back({&source, page});
  return pages;
}

class PagesCommand final : public Command {
 public:
  const char* Name() const override { return "pages"; }
  const char* Help() const override { return "list, take out, put in, remove and move pages of a TIFF file"; }
  std::string Subject() const override { return way_.input; }

  void AddOptions(Options& options) override;
  void CheckOptions() const override;
  int Run(Console& console) override;

 private:
  enum class Action { kList, kExtract, kInsert, kRemove, kMove };

  void List(Console& console) const;
  PageRange RangeIn(int pages) const;
  int PositionIn(int positions) const;
  void Write(const PageList& pages, Console& console) const;

  Action action_ = Action::kList;
  FileToFile way_;
  std::string range_ = "1";
  std::string position_ = "end";
  std::string inserted_;
};

void PagesCommand::AddOptions(Options& options) {
  const auto action = [&](const char* name, Action chosen, const char* help) {
    Options own = options.Action(name, help, [this, chosen] { action_ = chosen; });
    own.Argument("file", way_.input, "FILE", "TIFF file, others have one page; - is standard input");
    return own;
  };
  const auto writes = [&](Options& own) {
    own.Argument("out", way_.output, "OUT",
                 "file to write, .tif for several pages; - is standard output, of the --format told");
    way_.AddOptions(own, false);
  };
  constexpr char kRangeHelp[] = "page, counted from 1, or several: 2-4, or 2- to the last";
  action("list", Action::kList, "tell what the pages are");
  Options extract = action("extract", Action::kExtract, "write pages into a file of their own");
  extract.Argument("pages", range_, "N", kRangeHelp);
  writes(extract);
  Options insert = action("insert", Action::kInsert, "put all pages of another file in");
  insert.Argument("before", position_, "N", "page in front of which they come, or 'end'");
  insert.Argument("in", inserted_, "IN", kInputHelp);
  writes(insert);
  Options remove = action("remove", Action::kRemove, "leave pages out");
  remove.Argument("pages", range_, "N", kRangeHelp);
  writes(remove);
  Options move = action("move", Action::kMove, "give pages another place");
  move.Argument("from", range_, "FROM", kRangeHelp);
  move.Argument("to", position_, "TO", "number that the first of them gets, or 'end'");
  writes(move);
}

void PagesCommand::CheckOptions() const {
  PageRange range;
  int position = 0;
  if (!ParseRange(range_, range)) {
    throw Failure(Exit::kUsage, "", "'" + range_ + "' is not a page; write 3, 2-4 or 2-");
  }
  if (!ParsePosition(position_, position)) {
    throw Failure(Exit::kUsage, "", "'" + position_ + "' is not a place; write a page's number or 'end'");
  }
  if (action_ != Action::kList) way_.Check();
}

PageRange PagesCommand::RangeIn(int pages) const {
  PageRange range;
  ParseRange(range_, range);
  if (range.last == kLast) range.last = std::max(pages, range.first);
  if (range.last > pages) {
    throw Failure(Exit::kUsage, way_.input,
                  "has " + std::to_string(pages) + (pages == 1 ? " page" : " pages") + " only");
  }
  return range;
}

/// Counted from 0.
int PagesCommand::PositionIn(int positions) const {
  int position = 0;
  ParsePosition(position_, position);
  if (position == kLast) position = positions;
  if (position > positions) {
    throw Failure(Exit::kUsage, way_.input, "the last place is " + std::to_string(positions));
  }
  return position - 1;
}

void PagesCommand::List(Console& console) const {
  InputFile input(way_.input);
  const std::unique_ptr<Reader> reader = OpenPicture(input, console, kEveryPage);
  std::string report;
  for (int page = 1; page <= reader->Pages(); ++page) {
    reader->TurnTo(page);
    const Picture& picture = reader->Info();
    char number[16];
    std::snprintf(number, sizeof number, "%3d  ", page);
    report += number + std::to_string(picture.width) + " x " + std::to_string(picture.height) + " pixels, " +
              picture.depth + ", " + picture.container;
    if (picture.xDpi > 0 && picture.yDpi > 0) {
      report += ", " + std::to_string(picture.xDpi) + " x " + std::to_string(picture.yDpi) + " dots per inch";
    }
    report += "\n";
  }
  std::fputs(report.c_str(), stdout);
  FinishOutput();
}

/// The pages go through memory one at a time.
void PagesCommand::Write(const PageList& pages, Console& console) const {
  WriteOptions writing = way_.writing;
  if (way_.quality != 0) writing.jpegQuality = way_.quality;
  const StorageChoice& storage = way_.reading.storage;
  PictureFile target(way_.output, writing, storage, true, console);
  const auto turnTo = [](const PageOf& page) -> Reader& {
    page.source->reader->TurnTo(page.page);
    return *page.source->reader;
  };
  for (const PageOf& page : pages) {
    const Reader& reader = turnTo(page);
    const Layout layout = LayoutOf(reader.Info());
    RequireWithin(storage, reader.Info(), NameOfPage(page.source->input.Name(), reader));
    RequireStorable(storage, layout, NameOfPage(page.source->input.Name(), reader));
    target.Expect(reader.Info(), {reader.Info().width, reader.Info().height, layout});
  }
  target.Create();
  for (const PageOf& page : pages) {
    Reader& reader = turnTo(page);
    const std::string name = NameOfPage(page.source->input.Name(), reader);
    Loaded loaded = ReadBitmap(reader, storage, name, console);
    target.Add(loaded.picture, std::move(loaded.bitmap));
  }
  target.Commit();
}

int PagesCommand::Run(Console& console) {
  if (action_ == Action::kList) {
    List(console);
    return static_cast<int>(Exit::kOk);
  }
  const uint64_t memory = way_.reading.storage.maxMemory;
  Source source(way_.input, memory, console);
  std::unique_ptr<Source> other;
  PageList pages = PagesOf(source);
  const auto count = static_cast<int>(pages.size());
  if (action_ == Action::kInsert) {
    const int position = PositionIn(count + 1);
    other = std::make_unique<Source>(inserted_, memory, console);
    const PageList added = PagesOf(*other);
    pages.insert(pages.begin() + position, added.begin(), added.end());
  } else {
    const PageRange range = RangeIn(count);
    const auto first = pages.begin() + range.first - 1, end = pages.begin() + range.last;
    const PageList chosen(first, end);
    if (action_ == Action::kExtract) {
      pages = chosen;
    } else {
      pages.erase(first, end);
      if (pages.empty() && action_ == Action::kRemove) throw Failure(Exit::kUsage, way_.input, "no page would be left");
    }
    if (action_ == Action::kMove) {
      pages.insert(pages.begin() + PositionIn(static_cast<int>(pages.size()) + 1), chosen.begin(), chosen.end());
    }
  }
  Write(pages, console);
  return static_cast<int>(Exit::kOk);
}

}  // namespace

std::unique_ptr<Command> MakePages() { return std::make_unique<PagesCommand>(); }

}  // namespace tarn::tool
