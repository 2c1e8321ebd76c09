// Texts for the terminal: conversion to its encoding, and tables whose columns line up there.
//
// Inside the demo all texts are UTF-8 (package texts are); the library's messages are GBK.
#ifndef CACHET_TOOLS_DEMO_TEXT_H
#define CACHET_TOOLS_DEMO_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace demo {

std::string utf8_from_gbk(const std::string& gbk);

// Prints UTF-8 text on standard output in the terminal's encoding; '?' for what it does not have.
void print(const std::string& utf8);

// A line that replaces itself on a terminal. In a pipe only the last one, with `final`, is printed.
void print_progress(const std::string& utf8, bool final);

std::string with_thousands(int64_t value);

struct Column {
  std::string title;
  size_t width;  // of the terminal; longer texts are cut
  bool right = false;
};
void print_table(const std::vector<Column>& columns, const std::vector<std::vector<std::string>>& rows);

}  // namespace demo

#endif
