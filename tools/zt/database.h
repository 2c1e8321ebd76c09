// An ordinary handle of the library, for the commands that need one. It is ended so that the database survives: the
// last ordinary handle to go would remove it, an orphan included.
#ifndef CACHET_TOOLS_ZT_DATABASE_H
#define CACHET_TOOLS_ZT_DATABASE_H

#include <cachet.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/attachment.h"
#include "inspect/schema.h"
#include "zt/context.h"

namespace zt {

// Raw attachments to everything that the last handle to go would remove. Made before a handle ends and held until it
// has ended.
class Hold {
 public:
  explicit Hold(const cachet::inspect::BasePath& path);
  // True when everybody else left meanwhile, so that the memory stays behind.
  bool release() noexcept;

 private:
  std::vector<cachet::inspect::Attachment> attachments_;
};

enum class Access { read, write };

class Database {
 public:
  // Opens and loads it. Throws NotFound, Damaged, Refused while somebody makes it or loads an image, and Failure with
  // the library's text.
  Database(const Context& context, const std::string& path, Access access);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  operator ZtDbHandle() const { return handle_; }
  // As it was when the database was opened; tables, fields and indexes by the library's ids.
  const cachet::inspect::Schema& schema() const { return schema_; }
  std::string shown_path() const { return path_.shown(); }
  // The library's last error as a Failure: "TEXT (CODE)", with what was being done before it.
  [[noreturn]] void fail(const std::string& doing) const;
  // The same after a call whose result does not tell; nothing while no call on this handle has failed.
  void throw_if_failed(const std::string& doing) const;

 private:
  void open(Access access, const std::string& version);
  void end();

  const Context& context_;
  cachet::inspect::BasePath path_;
  ZtDbHandle handle_ = nullptr;
  cachet::inspect::Schema schema_;
  bool was_orphan_ = false;
};

}  // namespace zt

#endif
