// A line of the terminal, edited by its user: libedit, with history, completion, and signals that end neither the line
// editor nor the terminal's settings. Lines are in the locale's encoding.
#ifndef CACHET_TOOLS_ZT_SHELL_EDITOR_H
#define CACHET_TOOLS_ZT_SHELL_EDITOR_H

#include <histedit.h>

#include <functional>
#include <memory>
#include <string>

#include "zt/shell/completion.h"
#include "zt/shell/history.h"

namespace zt {

class Editor {
 public:
  // Is given the line up to the cursor.
  using Complete = std::function<Completion(const std::string& line)>;

  Editor(std::string prompt, Complete complete);
  ~Editor();
  Editor(const Editor&) = delete;
  Editor& operator=(const Editor&) = delete;

  enum class Read { line, interrupted, end };
  // Without the line's end and the blanks before it. `interrupted`: a stop was asked for meanwhile, and what was typed is dropped.
  Read read(std::string& line);
  void remember(const std::string& line);

 private:
  static Editor& of(EditLine* editor);
  static int read_character(EditLine* editor, wchar_t* character);
  static unsigned char complete_word(EditLine* editor, int key);
  bool wait_for_key();
  unsigned char insert(const Completion& completion, const std::string& line);

  std::string prompt_;
  Complete complete_;
  HistoryFile file_;
  std::unique_ptr<History, decltype(&history_end)> history_;
  std::unique_ptr<EditLine, decltype(&el_end)> editor_;
};

}  // namespace zt

#endif
