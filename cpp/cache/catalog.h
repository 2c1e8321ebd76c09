// The schema as it lies behind a header: four runs of records, each ordered by table id and then by position.
#ifndef CACHET_CPP_CACHE_CATALOG_H
#define CACHET_CPP_CACHE_CATALOG_H

#include <span>

#include "rb.h"

namespace cachet {

struct CatalogCounts {
  std::int64_t tables = 0;
  std::int64_t indexes = 0;
  std::int64_t fields = 0;
  std::int64_t index_fields = 0;

  static CatalogCounts of(const Rb_memory& header);
  // Of header and catalog.
  std::int64_t bytes() const;
  bool operator==(const CatalogCounts&) const = default;
};

struct Catalog {
  std::span<Rb_tablename> tables;
  std::span<Rb_indexname> indexes;
  std::span<Rb_tablefield> fields;
  std::span<Rb_indexfield> index_fields;

  // The runs behind the header at `header`.
  static Catalog behind(char* header, const CatalogCounts& counts);
};

// Whether the header's counts fit each other and the `limit` of bytes there are. A header that was never
// saved has no counts and no head size.
bool is_sound(const Rb_memory& header, std::int64_t limit);

// Whether every id names something that the replay will have made.
bool is_sound(const Catalog& catalog);

}  // namespace cachet

#endif
