// Tables and records framed for people: columns as wide as their widest cell, cut where the terminal is too narrow.
#include "zt/output/box.h"

#include <algorithm>
#include <numeric>

#include "zt/output/color.h"
#include "zt/output/width.h"

namespace zt {
namespace {

constexpr std::size_t narrowest_cut = 8;
constexpr std::size_t frame_of_a_column = 3;  // a line and two blanks

struct Frame {
  const char *down, *across, *mark;
  const char* corners[3][3];  // top, middle, bottom: left, between, right
};

constexpr Frame lines{"│", "─", "…", {{"┌", "┬", "┐"}, {"├", "┼", "┤"}, {"└", "┴", "┘"}}};
constexpr Frame ascii{"|", "-", "~", {{"+", "+", "+"}, {"+", "+", "+"}, {"+", "+", "+"}}};

std::string repeated(const char* text, std::size_t times) {
  std::string result;
  while (times-- > 0) result += text;
  return result;
}

std::string title_of(const Column& column) {
  std::string title = column.name;
  std::replace(title.begin(), title.end(), '_', ' ');
  return title;
}

}  // namespace

BoxSink::BoxSink(const Style& style, std::vector<Column> columns, const Encoding& encoding, std::FILE* out)
    : style_(style), columns_(std::move(columns)), encoding_(encoding), out_(out) {}

void BoxSink::write(const Row& cells) {
  std::vector<std::string>& texts = rows_.emplace_back();
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const std::string text = visible(for_people(cells[i], columns_[i].kind));
    // What the outside lacks is replaced before it is measured.
    texts.push_back(encoding_.from_outside(encoding_.to_outside(text)));
  }
}

void BoxSink::end() {
  std::string text;
  if (style_.shape == Shape::record) {
    for (const auto& row : rows_) text += record(row);
  } else if (!rows_.empty()) {
    text = table();
  }
  const std::string outside = encoding_.to_outside(text);
  std::fwrite(outside.data(), 1, outside.size(), out_);
}

std::string BoxSink::table() const {
  const Frame& frame = encoding_.has_boxes() ? lines : ascii;
  const std::vector<std::size_t> widths = fitting_widths();
  const auto border = [&](int level) {
    std::string line = frame.corners[level][0];
    for (std::size_t i = 0; i < widths.size(); ++i) {
      line += (i > 0 ? frame.corners[level][1] : "") + repeated(frame.across, widths[i] + 2);
    }
    return line + frame.corners[level][2] + "\n";
  };
  const auto line = [&](const auto& text_of, const auto& color_of) {
    std::string shown;
    for (std::size_t i = 0; i < widths.size(); ++i) {
      const std::string text = cut_to(text_of(i), widths[i], frame.mark);
      const std::string fill(widths[i] - width_of(text), ' ');
      const std::string colored_text = colored(text, style_.color ? color_of(i) : std::string_view());
      shown += std::string(frame.down) + " ";
      shown += is_number(columns_[i].kind) ? fill + colored_text : colored_text + fill;
      shown += " ";
    }
    return shown + frame.down + "\n";
  };
  std::string text = border(0);
  text += line([&](std::size_t i) { return title_of(columns_[i]); }, [](std::size_t) { return bold; });
  text += border(1);
  for (const auto& row : rows_) {
    text += line([&](std::size_t i) { return row[i]; }, [&](std::size_t i) { return color(row, i); });
  }
  return text + border(2);
}

// One property a line.
std::string BoxSink::record(const std::vector<std::string>& row) const {
  std::size_t width = 0;
  for (const Column& column : columns_) width = std::max(width, width_of(title_of(column)));
  std::string text;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    if (row[i].empty()) continue;
    const std::string title = title_of(columns_[i]);
    text +=
        std::string(width - width_of(title), ' ') + colored(title, style_.color ? bold : std::string_view());
    text += "  " + colored(row[i], style_.color ? color(row, i) : std::string_view()) + "\n";
  }
  return text;
}

std::string_view BoxSink::color(const std::vector<std::string>& row, std::size_t column) const {
  return columns_[column].kind == Kind::state ? color_of_state(row[column]) : std::string_view();
}

// The widest texts give way first.
std::vector<std::size_t> BoxSink::fitting_widths() const {
  std::vector<std::size_t> widths;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::size_t width = width_of(title_of(columns_[i]));
    for (const auto& row : rows_) width = std::max(width, width_of(row[i]));
    widths.push_back(width);
  }
  std::size_t total = std::accumulate(widths.begin(), widths.end(), frame_of_a_column * widths.size() + 1);
  const auto limit = static_cast<std::size_t>(style_.width);
  while (limit > 0 && total > limit) {
    std::size_t widest = widths.size();
    for (std::size_t i = 0; i < widths.size(); ++i) {
      const bool may_shrink = !is_number(columns_[i].kind) && widths[i] > narrowest_cut;
      if (may_shrink && (widest == widths.size() || widths[i] > widths[widest])) widest = i;
    }
    if (widest == widths.size()) break;
    --widths[widest];
    --total;
  }
  return widths;
}

}  // namespace zt
