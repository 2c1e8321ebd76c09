// The before-images of a handle's transaction, in this process: one array of entries, one hash of the addresses that it
// has, and blocks that take the images one behind the other. Nothing is allocated per record, and little per
// transaction: what a transaction of usual size needs stays for the next one.
//
// What must stay true: an address is in the hash if and only if an entry was made for it since the last clear. Images
// never move. Used by one thread at a time, as its handle.
#ifndef CACHET_UNDO_ARRAY_H
#define CACHET_UNDO_ARRAY_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace cachet {

// A set of addresses that is emptied in no time: a slot counts only while it carries the present generation.
class AddressSet {
 public:
  // False when it is there already. Throws std::bad_alloc, with nothing changed.
  bool insert(const void* address);
  // Takes back the latest insert.
  void erase_latest(const void* address) noexcept;
  void clear() noexcept;

 private:
  struct Slot {
    const void* address = nullptr;
    std::uint64_t generation = 0;
  };

  Slot& slot_of(const void* address) noexcept;
  void grow();

  std::vector<Slot> slots_;  // a power of two of them, at most half of them in use
  std::size_t size_ = 0;
  std::uint64_t generation_ = 1;
  int hash_shift_ = 0;
};

class UndoArray {
 public:
  struct Entry {
    char* record;  // the live one
    const char* image;
    int length;
    int tableid;
  };

  // Copies the record's bytes, if it has no entry yet. Throws std::bad_alloc: the record must not change then.
  void keep(char* record, int length, int tableid);
  // The entries by the address of the live record, each of which has one.
  const std::vector<Entry>& in_order();
  bool empty() const noexcept { return entries_.empty(); }
  void clear() noexcept;

 private:
  using Block = std::unique_ptr<char[]>;
  enum class Order { rising, falling, mixed };

  Order order_behind(const char* record) const noexcept;
  char* room_for(std::size_t bytes);

  AddressSet kept_;
  std::vector<Entry> entries_;
  Order order_ = Order::rising;
  std::vector<Block> blocks_;
  std::size_t block_room_ = 0;       // at the end of the last block
  std::vector<Block> large_images_;  // one each
};

}  // namespace cachet

#endif
