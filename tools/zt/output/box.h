// The framed table, and the list of one thing's properties.
#ifndef CACHET_TOOLS_ZT_OUTPUT_BOX_H
#define CACHET_TOOLS_ZT_OUTPUT_BOX_H

#include <string>
#include <string_view>
#include <vector>

#include "zt/output/rows.h"

namespace zt {

// Keeps all rows until the end, since their widths decide.
class BoxSink final : public RowSink {
 public:
  BoxSink(const Style& style, std::vector<Column> columns, const Encoding& encoding, std::FILE* out);
  void end() override;

 private:
  void write(const Row& cells) override;
  std::string table() const;
  std::string record(const std::vector<std::string>& row) const;
  std::string_view color(const std::vector<std::string>& row, std::size_t column) const;
  std::vector<std::size_t> fitting_widths() const;

  Style style_;
  std::vector<Column> columns_;
  const Encoding& encoding_;
  std::FILE* out_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace zt

#endif
