// The exits that programs and scripts outside rely upon: text, channel and status of each.
#include "base/fatal.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>

namespace {

namespace fatal = cachet::fatal;
using testing::ExitedWithCode;

// Death tests read standard error alone: standard output goes there too, and what went to standard error is
// dropped.
void show_standard_output_only() {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  close(STDERR_FILENO);
}

template <class End>
void on_standard_output(const End& end) {
  show_standard_output_only();
  end();
}

TEST(FatalDeathTest, ExhaustedMemoryIsPrintedAndEndsWithStatus0) {
  EXPECT_EXIT(on_standard_output([] { fatal::out_of_heap(fatal::before_image_line); }), ExitedWithCode(0),
              "^no memory,line=745\n$");
  EXPECT_EXIT(on_standard_output([] { fatal::out_of_shared_memory("Rb_node_malloc"); }), ExitedWithCode(0),
              "^Rb_node_malloc: nodeoffset > dataoffset, shm out of memory!\n$");
}

TEST(FatalDeathTest, MisusedTreeIsReportedWithTheLowAddressAndEndsWithStatus1) {
  const auto* const node = reinterpret_cast<const void*>(std::uintptr_t{0x7fff'1234'abcd});
  EXPECT_EXIT(fatal::tree_misuse(fatal::find_ikey_on_non_head, node), ExitedWithCode(1),
              "^rb_find_ikey_n called on non-head 0x1234abcd\n$");
  EXPECT_EXIT(fatal::tree_misuse(fatal::plength_of_non_external, node), ExitedWithCode(1),
              "^ERROR: rb_plength called on a non-external node 0x1234abcd\n$");
}

TEST(FatalDeathTest, RefusalByTheCallbackEndsWithStatusMinus1) {
  EXPECT_EXIT(fatal::refused_by_callback(), ExitedWithCode(255), "^$");
}

}  // namespace
