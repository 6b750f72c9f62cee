#include "DemoPage.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "Console.h"
#include "DemoStyle.h"
#include "Failure.h"
#include "Files.h"

namespace tarn::tool {

std::string Grouped(uint64_t number) {
  std::string text = std::to_string(number);
  for (int at = static_cast<int>(text.size()) - 3; at > 0; at -= 3) text.insert(static_cast<size_t>(at), ",");
  return text;
}

namespace {

// ---- List ----------------------------------------------------------------------------------------------------------

std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> fields(1);
  for (const char c : line) {
    if (c == '\t') {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

/// Empty where there is no such file. The last line's end is left out.
std::string TextOf(const std::filesystem::path& name) {
  std::ifstream in(name, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

Entry PictureEntry(const std::vector<std::string>& fields, const std::filesystem::path& notes,
                   const std::filesystem::path& directory) {
  Entry entry;
  entry.kind = Entry::Kind::kPicture;
  entry.image = fields[1];
  entry.title = fields[2];
  entry.command = fields[3];
  entry.note = TextOf(notes / (entry.image + ".note"));
  const std::string same = TextOf(notes / (entry.image + ".same"));
  entry.compared = !same.empty();
  entry.same = same == "yes";
  Console console(false, true);
  InputFile file(directory / entry.image);
  entry.bytes = file.Size();
  const std::unique_ptr<Reader> reader = OpenPicture(file, console, 0);
  const Picture& picture = reader->Info();
  entry.holds = picture.depth;
  entry.width = picture.width;
  entry.height = picture.height;
  if (picture.orientation > 4) std::swap(entry.width, entry.height);  // as it is seen
  return entry;
}

}  // namespace

std::vector<Section> ReadSections(const std::filesystem::path& list, const std::filesystem::path& directory) {
  std::vector<Section> sections;
  std::ifstream in(list);
  if (!in) throw Failure(Exit::kInput, list, "cannot be read");
  for (std::string line; std::getline(in, line);) {
    const std::vector<std::string> fields = Fields(line);
    const std::string& word = fields[0];
    if (word == "section" && fields.size() == 5) {
      sections.push_back({fields[1], fields[2], fields[4], fields[3], {}, {}});
    } else if (sections.empty()) {
      throw Failure(Exit::kUsage, list, "does not begin with a section");
    } else if (word == "about" && fields.size() == 2) {
      sections.back().about.push_back(fields[1]);
    } else if (word == "heading" && fields.size() == 2) {
      Entry entry;
      entry.title = fields[1];
      sections.back().entries.push_back(entry);
    } else if (word == "picture" && fields.size() == 4) {
      sections.back().entries.push_back(PictureEntry(fields, list.parent_path(), directory));
    } else if (word == "text" && fields.size() == 4) {
      Entry entry;
      entry.kind = Entry::Kind::kText;
      entry.title = fields[2];
      entry.command = fields[3];
      entry.text = TextOf(list.parent_path() / (fields[1] + ".told"));
      sections.back().entries.push_back(entry);
    } else {
      throw Failure(Exit::kUsage, list, "has a line that is none of its kinds: " + line);
    }
  }
  return sections;
}

namespace {

// ---- Pieces of the page --------------------------------------------------------------------------------------------

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

/// Three digits and a unit of thousands: "1.09 MB".
std::string Amount(uint64_t bytes) {
  constexpr const char* kUnits[] = {"B", "KB", "MB", "GB"};
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 999.5 && unit + 1 < std::size(kUnits)) value /= 1000, ++unit;
  char text[32];
  std::snprintf(text, sizeof text, "%.*f %s",
                unit == 0 || value >= 99.95 ? 0
                : value >= 9.995            ? 1
                                            : 2,
                value, kUnits[unit]);
  return text;
}

std::string HeldAmount(uint64_t bytes) { return bytes == 0 ? "&ndash;" : Amount(bytes); }

std::string Image(const std::string& file, const std::string& alt, int32_t width, int32_t height, bool lazy) {
  return "<img" + std::string(lazy ? " loading=\"lazy\"" : "") + " src=\"" + Escaped(file) + "\" alt=\"" +
         Escaped(alt) + "\" width=\"" + std::to_string(width) + "\" height=\"" + std::to_string(height) + "\">";
}

std::string Opened(const std::string& file, const std::string& image) {
  return "<a href=\"" + Escaped(file) + "\">" + image + "</a>";
}

/// Bars grow with the logarithm: disk and memory are a factor of a hundred apart.
std::string RateCell(double rate, double most) {
  const double part = most <= 1 ? 0 : std::clamp(std::log10(std::max(rate, 1.0)) / std::log10(most), 0.0, 1.0);
  return "<td class=\"bar\" style=\"--part:" + std::to_string(static_cast<int>(part * 100)) + "%\">" +
         Grouped(static_cast<uint64_t>(rate + 0.5)) + "</td>";
}

std::string BeginSection(const std::string& id, const std::string& title, const std::vector<std::string>& about) {
  std::string html = "<section id=\"" + id + "\" aria-labelledby=\"" + id + "-title\">\n<h2 id=\"" + id + "-title\">" +
                     Escaped(title) + "</h2>\n";
  for (const std::string& text : about) html += "<p>" + Escaped(text) + "</p>\n";
  return html;
}

// ---- Storage -------------------------------------------------------------------------------------------------------

std::string StorageCard(const Shown& shown, double most) {
  const Picture& picture = shown.picture;
  const bool turned = picture.orientation > 4;
  std::string html =
      "<article class=\"card\">\n<figure>" +
      Opened(shown.image,
             Image(shown.image, shown.title + ", fetched from storage", turned ? picture.height : picture.width,
                   turned ? picture.width : picture.height, true)) +
      "</figure>\n<div>\n<h3>" + Escaped(shown.title) + "</h3>\n<p class=\"soft\">" + std::to_string(picture.width) +
      " &times; " + std::to_string(picture.height) + ", " + Escaped(DepthName(picture)) + ", " + Grouped(shown.bytes) +
      " bytes of pixels; from " + Escaped(picture.container) +
      "</p>\n<div class=\"table\" tabindex=\"0\" role=\"region\" aria-label=\"Storage of " + Escaped(shown.title) +
      "\"><table>\n<thead><tr><th scope=\"col\">storage</th><th scope=\"col\">in memory</th><th scope=\"col\">on "
      "disk</th><th scope=\"col\">write MB/s</th><th scope=\"col\">read MB/s</th><th scope=\"col\">same</th></tr>"
      "</thead>\n<tbody>\n";
  for (const Trip& trip : shown.trips) {
    html += "<tr><th scope=\"row\">" + trip.kind + "</th><td>" + HeldAmount(trip.held.memory) + "</td><td>" +
            HeldAmount(trip.held.disk) + "</td>" + RateCell(trip.writeRate, most) + RateCell(trip.readRate, most) +
            (trip.same ? "<td class=\"yes\">yes</td>" : "<td class=\"no\">no</td>") + "</tr>\n";
  }
  return html + "</tbody></table></div>\n</div>\n</article>\n";
}

std::string StorageSection(const std::vector<Shown>& all) {
  double most = 1;
  for (const Shown& shown : all) {
    for (const Trip& trip : shown.trips) most = std::max({most, trip.writeRate, trip.readRate});
  }
  std::string html = BeginSection(
      "storage", "Every kind of storage",
      {"Each picture was written row by row into every kind of storage that can hold it, read back, and compared byte "
       "for byte. The same calls do all of it: a program that reads rows need not know where they are.",
       "Rates are the best of several passes on this machine, and their bars are logarithmic; files go through the "
       "system's cache. The pictures shown were encoded again from tiles of 64 KB, the page from run lengths."});
  for (const Shown& shown : all) html += StorageCard(shown, most);
  return html + "</section>\n";
}

std::string SuperSection(const std::vector<Shown>& all) {
  std::string html = BeginSection(
      "super", "Super-compressed storage",
      {"Pictures of 1, 8 and 24 bits can be kept in memory compressed without loss. Rows are expanded when somebody "
       "asks for them, a strip at a time, and compressed again when they have not been used for a while. Photographs "
       "take about half of their room, a scanned page less than a tenth."});
  html +=
      "<div class=\"card table\" tabindex=\"0\" role=\"region\" aria-label=\"Sizes of pictures\"><table>\n<thead><tr>"
      "<th scope=\"col\">picture</th><th scope=\"col\">plain</th><th scope=\"col\">super-compressed</th>"
      "<th scope=\"col\" class=\"wide\">of the plain size</th></tr></thead>\n<tbody>\n";
  uint64_t plain = 0, packed = 0;
  const auto row = [&](const std::string& name, const char* kind, uint64_t of, uint64_t to) {
    char percent[16];
    std::snprintf(percent, sizeof percent, "%.1f", 100.0 * static_cast<double>(to) / static_cast<double>(of));
    html += "<tr" + std::string(kind) + "><th scope=\"row\">" + Escaped(name) + "</th><td>" + Amount(of) + "</td><td>" +
            Amount(to) + "</td><td class=\"bar wide\" style=\"--part:" + percent + "%\">" + percent + " %</td></tr>\n";
  };
  for (const Shown& shown : all) {
    for (const Trip& trip : shown.trips) {
      if (trip.type != TYPE_SUPERCOMPRESSED) continue;
      plain += shown.bytes;
      packed += trip.held.memory;
      row(shown.title, "", shown.bytes, trip.held.memory);
    }
  }
  if (plain != 0) row("all", " class=\"sum\"", plain, packed);
  return html +
         "</tbody></table></div>\n<p class=\"after soft\">With the tool: <code>tarn convert IN OUT --storage super" +
         "</code></p>\n</section>\n";
}

// ---- Gallery -------------------------------------------------------------------------------------------------------

std::string Figure(const Entry& entry, const std::string& heading) {
  std::string html = "<figure>" +
                     Opened(entry.image, Image(entry.image, (heading.empty() ? "" : heading + ": ") + entry.title,
                                               entry.width, entry.height, true)) +
                     "<figcaption><strong>" + Escaped(entry.title) + "</strong>";
  if (entry.compared) {
    html +=
        entry.same ? "<span class=\"yes\">as before, bit for bit</span>" : "<span class=\"no\">not as before</span>";
  }
  if (!entry.note.empty()) html += "<span class=\"note\">" + Escaped(entry.note) + "</span>";
  if (!entry.command.empty()) html += "<code>" + Escaped(entry.command) + "</code>";
  return html + "<span class=\"soft\">" + Escaped(entry.holds) + ", " + Grouped(entry.bytes) +
         " bytes</span></figcaption></figure>\n";
}

std::string GallerySection(const Section& section) {
  std::string html = BeginSection(section.id, section.title, section.about), heading = section.title;
  bool open = false;
  for (const Entry& entry : section.entries) {
    if (open && entry.kind != Entry::Kind::kPicture) {
      html += "</div>\n";
      open = false;
    }
    if (entry.kind == Entry::Kind::kHeading) {
      html += "<h3>" + Escaped(entry.title) + "</h3>\n";
      heading = entry.title;
    } else if (entry.kind == Entry::Kind::kText) {
      html += "<figure class=\"told\"><figcaption><strong>" + Escaped(entry.title) + "</strong><code>" +
              Escaped(entry.command) + "</code></figcaption>";
      if (!entry.text.empty()) {
        html += "<pre tabindex=\"0\" aria-label=\"What it prints\">" + Escaped(entry.text) + "</pre>";
      }
      html += "</figure>\n";
    } else {
      if (!open) html += "<div class=\"gallery\">\n";
      open = true;
      html += Figure(entry, heading);
    }
  }
  return html + (open ? "</div>\n" : "") + "</section>\n";
}

// ---- Opening -------------------------------------------------------------------------------------------------------

std::string Fact(const std::string& title, const std::string& figure, const std::string& text, const char* kind) {
  return "<div><dt>" + title + "</dt><dd class=\"figure" + kind + "\">" + figure + "</dd><dd>" + text + "</dd></div>\n";
}

std::string Opening(const Summary& summary) {
  const auto verdict = [](size_t same, size_t of) { return same == of ? " yes" : " no"; };
  const auto outOf = [](size_t same, size_t of) { return Grouped(same) + " of " + Grouped(of); };
  std::string html =
      "<header>\n<h1>Tarn at work</h1>\n<p class=\"lead\">Tarn is the library that imaging programs stand on. It keeps "
      "pictures, from scanned pages of one bit a pixel to photographs of sixteen bits a colour, in memory, on disk or "
      "compressed, and does the groundwork on them: depths, colours, sizes, turns, layers, pages. Everything here was "
      "made by it on this machine, in the time that it says.</p>\n<dl class=\"facts\">\n" +
      Fact("Stored and fetched", outOf(summary.tripsSame, summary.trips), "came back the same, byte for byte",
           verdict(summary.tripsSame, summary.trips));
  if (summary.made != 0) {
    html += Fact("Changed and restored", outOf(summary.comparedSame, summary.compared), "are as before, bit for bit",
                 verdict(summary.comparedSame, summary.compared)) +
            Fact("Pictures made", Grouped(summary.made), "each by the command below it", "");
  }
  if (summary.seconds != 0) {
    html += Fact("Time", std::to_string(summary.seconds) + " s", "for all of it, measurements included", "");
  }
  return html + "</dl>\n</header>\n";
}

std::string Contents(const std::vector<Shown>& all, const std::vector<Section>& sections) {
  std::string html = "<nav aria-label=\"Contents\">\n<ol class=\"contents\">\n";
  const auto item = [&](const std::string& id, const std::string& title, const std::string& brief,
                        const std::string& cover) {
    html += "<li><a href=\"#" + id + "\"><img src=\"" + Escaped(cover) +
            "\" alt=\"\" width=\"240\" height=\"150\"><strong>" + Escaped(title) + "</strong><span>" + Escaped(brief) +
            "</span></a></li>\n";
  };
  for (const Section& section : sections) item(section.id, section.title, section.brief, section.cover);
  item("storage", "Every kind of storage", "Pictures in memory, in tiles, on disk and compressed, compared.",
       all.front().image);
  item("super", "Super-compressed storage", "How small pictures get without losing anything.",
       all[std::min<size_t>(1, all.size() - 1)].image);
  return html + "</ol>\n</nav>\n";
}

}  // namespace

std::string DemoPage(const std::vector<Shown>& all, const std::vector<Section>& sections, const Summary& summary) {
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<meta name=\"color-scheme\" "
      "content=\"light dark\">\n<link rel=\"icon\" href=\"data:,\">\n<title>Tarn at work</title>\n<style>" +
      std::string(kDemoStyle) + "</style>\n</head>\n<body>\n" + Opening(summary) + Contents(all, sections) + "<main>\n";
  for (const Section& section : sections) html += GallerySection(section);
  return html + StorageSection(all) + SuperSection(all) + "</main>\n<footer>\n<p class=\"soft\">Tarn " +
         Escaped(summary.version) + ". " + Escaped(summary.origin) +
         " Open a picture to see its pixels as they are.</p>\n</footer>\n</body>\n</html>\n";
}

}  // namespace tarn::tool
