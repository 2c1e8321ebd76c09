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

// A database to be made. The names of `schema` are stored text; the library would take all of it.
struct NewDatabase {
  std::string version;  // as stored
  std::int64_t size_bytes = 0;
  cachet::inspect::Schema schema;
};

class Database {
 public:
  // Opens and loads it. Throws NotFound, Damaged, Refused while somebody makes it or loads an image, and Failure with
  // the library's text.
  Database(const Context& context, const std::string& path, Access access);
  // Makes it, empty. Throws Refused when there is one, Failure with the library's text; nothing is left of it then.
  // (database_creation.cpp)
  Database(const Context& context, const std::string& path, NewDatabase what);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  operator ZtDbHandle() const { return handle_; }
  // As it was when the database was opened; tables, fields and indexes by the library's ids.
  const cachet::inspect::Schema& schema() const { return schema_; }
  const cachet::inspect::BasePath& path() const { return path_; }
  // UTF-8.
  std::string shown_path() const { return context_.encoding().from_outside(path_.shown()); }
  Access access() const { return access_; }
  // At its end it goes as with any last user, instead of surviving the tool; or not, after all.
  void discard() { survives_ = false; }
  void keep() { survives_ = true; }
  // The library's last error as a Failure: "TEXT (CODE)", with what was being done before it.
  [[noreturn]] void fail(const std::string& doing) const;
  // The same after a call whose result does not tell; nothing while no call on this handle has failed.
  void throw_if_failed(const std::string& doing) const;

 private:
  void open(const std::string& version);
  void make(const NewDatabase& what);
  void end();

  const Context& context_;
  cachet::inspect::BasePath path_;
  Access access_ = Access::write;
  ZtDbHandle handle_ = nullptr;
  cachet::inspect::Schema schema_;
  bool survives_ = true;
  bool was_orphan_ = false;  // nobody else has had it since before
};

}  // namespace zt

#endif
