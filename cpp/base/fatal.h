// The ways in which the library ends the process. It calls exit nowhere else.
//
// All of them are meant: exhausted memory and a misused tree leave nothing that a caller could go on with.
// The texts and exit statuses are relied upon from outside.
#ifndef CACHET_CPP_BASE_FATAL_H
#define CACHET_CPP_BASE_FATAL_H

namespace cachet::fatal {

// What the heap had no room for. The numbers are part of the texts and do not follow the source.
inline constexpr int before_image_line = 745;
inline constexpr int condition_key_line = 2577;
inline constexpr int new_row_line = 2599;
inline constexpr int record_copy_line = 3221;

// The messages of tree_misuse.
inline constexpr char find_key_on_non_head[] = "rb_find_key_n called on non-head 0x%x\n";
inline constexpr char find_ikey_on_non_head[] = "rb_find_ikey_n called on non-head 0x%x\n";
inline constexpr char nblack_of_non_external[] = "ERROR: rb_nblack called on a non-external node 0x%x\n";
inline constexpr char plength_of_non_external[] = "ERROR: rb_plength called on a non-external node 0x%x\n";

// Prints "no memory,line=<line>" on standard output; status 0.
[[noreturn]] void out_of_heap(int line);

// Prints that the two fronts of the shared memory met, on standard output; status 0. `allocator` is the call
// that failed, Rb_node_malloc or Rb_data_malloc.
[[noreturn]] void out_of_shared_memory(const char* allocator);

// Prints the message with the low 32 bits of the node's address on standard error; status 1.
[[noreturn]] void tree_misuse(const char* format, const void* node);

// What an isolated handle asked its manager for failed, and may have been done or not: nothing to go on with. The reason
// has been reported; status 0.
[[noreturn]] void remote_change_failed();

// The caller's error callback returned false; status -1.
[[noreturn]] void refused_by_callback();

}  // namespace cachet::fatal

#endif
