// A readable picture of one table: every index with its keys and the records under them, once by the lists of
// all records ever stored and once by the lists that cursors have tidied, and then the records. For the eyes
// of an engineer; nothing reads it back, and nothing is locked.
#include <fcntl.h>

#include "base/file.h"
#include "base/transfer.h"
#include "cache/each_record.h"
#include "cache/entry.h"
#include "cache/error.h"
#include "cache/key.h"
#include "cache/text.h"

using namespace cachet;

namespace {

class Dump {
 public:
  Dump(ZtDb* database, const ZtTable& table, int descriptor)
      : base_(&database->base), database_(database), table_(table), writer_(descriptor) {}

  bool write() {
    for (std::size_t id = 0; id < table_.indexs.size(); ++id) {
      write_index<OriginList>(id, "origin_index_name=", EmptyKeys::shown);
    }
    for (std::size_t id = 0; id < table_.indexs.size(); ++id) {
      write_index<CurrentList>(id, "curent_index_name=", EmptyKeys::left_out);
    }
    write_records();
    return writer_.finish();
  }

 private:
  enum class EmptyKeys { shown, left_out };

  template <class Records>
  void write_index(std::size_t id, const char* title, EmptyKeys empty_keys) {
    const ZtIndexDescrible& index = table_.indexdescrible[id];
    write_title(title, index.name, index.indexdescrible, [this](int fieldid) { return field(fieldid).name; });
    entries_left_ = base_->memory->nodeoffset / slot_bytes;
    for_each_node(base_, table_.indexs[id], links_of(base_), [&](Rb_node node) {
      const ZtIndexItem* const item = stored_item(base_, node);
      if (item == nullptr) return;
      const std::uint32_t head = Records::head(item);
      if (head == 0 && empty_keys == EmptyKeys::left_out) return;
      line_ = "key=";
      append_key(index, item);
      append_ids<Records>(head);
      end_line();
    });
  }

  void append_key(const ZtIndexDescrible& index, const ZtIndexItem* item) {
    int place = 0;
    for (const int fieldid : index.indexdescrible) {
      if (place > 0) line_.push_back(',');
      const Value value = stored_value(base_, item, place++);
      if (value.data != nullptr) append_value(line_, field(fieldid), value, ZeroCharacter::written);
    }
  }

  // The ids of the records in one list of a key.
  template <class Records>
  void append_ids(std::uint32_t number) {
    const bool checked = links_of(base_) == Links::checked;
    while (number != 0 && entries_left_-- > 0) {
      if (checked && !is_node(base_, number)) return;
      const ZtIndexNode* const entry = entry_at(base_, number);
      const std::int64_t record = record_offset_of(entry);
      if (checked && !is_data(base_, record, ZT_RECORD_HEADER)) return;
      line_.push_back(':');
      append_id(record_at(base_, record));
      number = Records::next(entry);
    }
  }

  void write_records() {
    write_title("tablename=", table_.name, table_.fielddescrible,
                [](const ZtDataField& each) { return each.name; });
    for_each_record(database_, table_, [this](ZtRecord* record) {
      line_ = "ID=";
      append_id(record);
      line_ += is_deleted(record) ? ",DELETE=TRUE,data=" : ",DELETE=FALSE,data=";
      const char* separator = "";
      for (const ZtDataField& each : table_.fielddescrible) {
        line_ += separator;
        append_value(line_, each, value_in(record, each), ZeroCharacter::written);
        separator = ",";
      }
      end_line();
    });
  }

  template <class Fields, class NameOf>
  void write_title(const char* title, const char* name, const Fields& fields, const NameOf& name_of) {
    line_ = title;
    line_.append(name).push_back('(');
    const char* separator = "";
    for (const auto& each : fields) {
      line_.append(separator).append(name_of(each));
      separator = ",";
    }
    line_.push_back(')');
    end_line();
  }
  void end_line() {
    line_.push_back('\n');
    writer_.put(line_);
  }

  void append_id(const ZtRecord* record) { line_ += std::to_string(static_cast<int>(id_of(record))); }

  const ZtDataField& field(int id) const { return table_.fielddescrible[static_cast<std::size_t>(id)]; }

  Rb_base* base_;
  ZtDb* database_;
  const ZtTable& table_;
  FileWriter writer_;
  std::string line_;
  std::int64_t entries_left_ = 0;  // of the index: no more than there are nodes, whatever the links say
};

}  // namespace

bool ZtDumpTable(ZtDbHandle database, int tableid, const char* filename) {
  const ZtTable* const table = loaded_table(database, tableid);
  if (table == nullptr) return false;
  Descriptor file = open_file(filename, O_RDWR | O_CREAT | O_TRUNC, 0666);
  if (!file) return report(database, ZT_ERR_GENERAL, message::open_export_failed);
  return (Dump(database, *table, file.get()).write() && file.close()) ||
         report(database, ZT_ERR_GENERAL, message::write_failed, filename);
}
