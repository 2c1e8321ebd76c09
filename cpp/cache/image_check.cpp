#include "cache/image_check.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/transfer.h"
#include "cache/catalog.h"
#include "cache/error.h"
#include "cache/heads.h"

namespace cachet {

namespace {

template <std::size_t size>
std::string_view text_in(const char (&field)[size]) {
  return {field, strnlen(field, size)};
}

// Everything but the records' counters, marks and reserved words.
bool same(const Rb_tablename& a, const Rb_tablename& b) {
  return text_in(a.name) == text_in(b.name) && a.tableid == b.tableid;
}
bool same(const Rb_indexname& a, const Rb_indexname& b) {
  return text_in(a.name) == text_in(b.name) && a.type == b.type && a.indexid == b.indexid &&
         a.tableid == b.tableid;
}
bool same(const Rb_tablefield& a, const Rb_tablefield& b) {
  return a.tableid == b.tableid && a.fieldid == b.fieldid && text_in(a.fieldname) == text_in(b.fieldname) &&
         a.type == b.type && a.length == b.length && a.decimal == b.decimal;
}
bool same(const Rb_indexfield& a, const Rb_indexfield& b) {
  return a.tableid == b.tableid && a.indexid == b.indexid && a.fieldid == b.fieldid;
}

bool same(const Catalog& a, const Catalog& b) {
  const auto same_record = [](const auto& left, const auto& right) { return same(left, right); };
  return std::ranges::equal(a.tables, b.tables, same_record) &&
         std::ranges::equal(a.indexes, b.indexes, same_record) &&
         std::ranges::equal(a.fields, b.fields, same_record) &&
         std::ranges::equal(a.index_fields, b.index_fields, same_record);
}

bool has_sound_fronts(const Rb_memory& header) {
  const CatalogCounts counts = CatalogCounts::of(header);
  const std::int64_t heads = end_of_heads(first_head_offset(header), counts.tables + counts.indexes);
  return heads <= header.nodeoffset && heads <= segment_bytes && header.nodeoffset % slot_bytes == 0 &&
         header.nodeoffset <= header.dataoffset && header.dataoffset <= header.size;
}

class Check {
 public:
  Check(ZtDbHandle database, const char* filename) : database_(database), filename_(filename) {}

  CheckedImage run() {
    image_.file = open_file(filename_, O_RDONLY);
    if (!image_.file) {
      report(database_, ZT_ERR_GENERAL, message::open_failed, or_empty(filename_));
    } else if (!read_header() || !fits_attached_size() || !read_catalog() || !fits_attached_catalog()) {
      image_.file = Descriptor();
    }
    return std::move(image_);
  }

 private:
  bool malformed() { return report(database_, ZT_ERR_GENERAL, message::bad_format, filename_); }

  // A file that ends behind its version is told by it, one that ends before has none.
  bool read_header() {
    constexpr std::size_t version_end = offsetof(Rb_memory, version) + sizeof(Rb_memory::version);
    const ssize_t came = read_whole(image_.file.get(), &header_, sizeof header_);
    if (came < 0) return report(database_, ZT_ERR_GENERAL, message::read_failed, filename_);
    if (static_cast<std::size_t>(came) < version_end) return malformed();
    const std::string_view version = text_in(header_.version);
    const std::string_view required = text_in(database_->base.memory->version);
    if (version != required) {
      return report(database_, ZT_ERR_IMAGE_VERSION, message::image_version, filename_,
                    std::string(version).c_str(), std::string(required).c_str());
    }
    return static_cast<std::size_t>(came) == sizeof header_ || malformed();
  }

  bool fits_attached_size() {
    struct stat status {};
    const bool regular = fstat(image_.file.get(), &status) == 0 && S_ISREG(status.st_mode);
    const std::int64_t attached = database_->base.attached_bytes;
    return (regular && header_.size == attached && status.st_size >= attached) || malformed();
  }

  bool read_catalog() {
    if (!is_sound(header_, std::min<std::int64_t>(header_.size, segment_bytes))) return malformed();
    const auto head_bytes = static_cast<std::size_t>(CatalogCounts::of(header_).bytes());
    image_.head.resize(head_bytes);
    std::memcpy(image_.head.data(), &header_, sizeof header_);
    const std::size_t rest = head_bytes - sizeof header_;
    const ssize_t came = read_whole(image_.file.get(), image_.head.data() + sizeof header_, rest);
    if (came < 0) return report(database_, ZT_ERR_GENERAL, message::read_failed, filename_);
    return static_cast<std::size_t>(came) == rest || malformed();
  }

  bool fits_attached_catalog() {
    if (!has_sound_fronts(header_)) return malformed();
    const Catalog catalog = Catalog::behind(image_.head.data(), CatalogCounts::of(header_));
    const Rb_memory& attached = *database_->base.memory;
    if (!is_sound(catalog)) return malformed();
    if (attached.tablecount == 0) return true;
    const CatalogCounts counts = CatalogCounts::of(attached);
    if (counts != CatalogCounts::of(header_)) return malformed();
    return same(catalog, Catalog::behind(database_->base.share_memory_begin[0], counts)) || malformed();
  }

  ZtDbHandle database_;
  const char* filename_;
  Rb_memory header_{};
  CheckedImage image_;
};

}  // namespace

CheckedImage open_checked_image(ZtDbHandle database, const char* filename) {
  return Check(database, filename).run();
}

}  // namespace cachet
