#include "zt/shell/editor.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cwchar>

#include "zt/stop.h"

namespace zt {
namespace {

// Ctrl-D. One that was typed before the editor had the terminal comes as a NUL.
constexpr char end_of_input = 4;
constexpr double a_long_time_s = 3600;
constexpr char complete_command[] = "zt-complete";

// What only the waiting for a key looks at: the terminal has another size, or was given back to us after a stop.
volatile std::sig_atomic_t resized = 0, continued = 0;

void note(int signal) {
  (signal == SIGWINCH ? resized : continued) = 1;
}

void on_terminal_signals(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  for (const int signal : {SIGWINCH, SIGCONT}) sigaction(signal, &action, nullptr);
}

std::size_t characters_in(const std::string& text) {
  const std::size_t count = std::mbstowcs(nullptr, text.c_str(), 0);
  return count == static_cast<std::size_t>(-1) ? text.size() : count;
}

// As the terminal shows it.
std::size_t columns_of(const std::string& text) {
  std::wstring wide(text.size(), L'\0');
  const std::size_t count = std::mbstowcs(wide.data(), text.c_str(), wide.size());
  const int columns = count == static_cast<std::size_t>(-1) ? -1 : wcswidth(wide.data(), count);
  return columns < 0 ? text.size() : static_cast<std::size_t>(columns);
}

std::string common_beginning(const std::vector<std::string>& texts) {
  std::string common = texts.front();
  for (const std::string& each : texts) {
    const auto [end, other] = std::mismatch(common.begin(), common.end(), each.begin(), each.end());
    common.erase(end, common.end());
  }
  // Never half a character.
  while (!common.empty() && std::mbstowcs(nullptr, common.c_str(), 0) == static_cast<std::size_t>(-1))
    common.pop_back();
  return common;
}

// In columns, below the line that is edited.
void list(const std::vector<std::string>& texts) {
  std::size_t width = 0;
  for (const std::string& each : texts) width = std::max(width, columns_of(each) + 2);
  winsize size{};
  const std::size_t columns =
      ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? std::max<std::size_t>(size.ws_col / width, 1) : 1;
  std::string shown = "\n";
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const bool ends_row = (i + 1) % columns == 0 || i + 1 == texts.size();
    shown += texts[i] + (ends_row ? "\n" : std::string(width - columns_of(texts[i]), ' '));
  }
  std::fputs(shown.c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace

Editor::Editor(std::string prompt, Complete complete)
    : prompt_(std::move(prompt)),
      complete_(std::move(complete)),
      history_(history_init(), &history_end),
      editor_(el_init("zt", stdin, stdout, stderr), &el_end) {
  EditLine* const editor = editor_.get();
  el_set(editor, EL_CLIENTDATA, this);
  el_set(
      editor, EL_PROMPT, +[](EditLine* of_line) { return of(of_line).prompt_.data(); });
  el_wset(editor, EL_GETCFN, &Editor::read_character);
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_SIGNAL, 0);
  el_set(editor, EL_ADDFN, complete_command, "Complete the word", &Editor::complete_word);
  el_set(editor, EL_BIND, "^I", complete_command, nullptr);
  el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  el_source(editor, nullptr);  // what the user prefers, in ~/.editrc
  HistEvent event;
  history(history_.get(), &event, H_SETSIZE, most_remembered);
  history(history_.get(), &event, H_SETUNIQUE, 1);
  for (const std::string& line : file_.read()) history(history_.get(), &event, H_ENTER, line.c_str());
  el_set(editor, EL_HIST, history, history_.get());
  on_terminal_signals(note);
}

Editor::~Editor() {
  on_terminal_signals(SIG_DFL);
}

Editor& Editor::of(EditLine* editor) {
  void* self = nullptr;
  el_get(editor, EL_CLIENTDATA, &self);
  return *static_cast<Editor*>(self);
}

Editor::Read Editor::read(std::string& line) {
  el_set(editor_.get(), EL_PREP_TERM,
         1);  // before the prompt: whoever sees it may type what only an editor takes
  int count = 0;
  const char* const text = el_gets(editor_.get(), &count);
  if (stop_asked()) {
    std::fputs("^C\n", stdout);
    el_reset(editor_.get());
    return Read::interrupted;
  }
  if (text == nullptr || count <= 0) {
    std::fputs("\n", stdout);
    return Read::end;
  }
  line.assign(text, static_cast<std::size_t>(count));
  line.erase(line.find_last_not_of(" \n\r") + 1);
  return Read::line;
}

void Editor::remember(const std::string& line) {
  HistEvent event;
  history(history_.get(), &event, H_ENTER, line.c_str());
  file_.append(line);
}

// False when the waiting is to end.
bool Editor::wait_for_key() {
  for (;;) {
    const Wait waited = wait_for(a_long_time_s, true);
    if (waited == Wait::stop) return false;
    if (resized != 0) el_resize(editor_.get());
    if (continued != 0) {
      // Whoever had the terminal meanwhile has left it as it likes.
      el_set(editor_.get(), EL_PREP_TERM, 0);
      el_set(editor_.get(), EL_PREP_TERM, 1);
      el_set(editor_.get(), EL_REFRESH);
    }
    resized = 0;
    continued = 0;
    if (waited == Wait::key) return true;
  }
}

// 1, 0 at the end of the input, -1 when the line is to be given up.
int Editor::read_character(EditLine* editor, wchar_t* character) {
  std::mbstate_t state{};
  for (;;) {
    if (!of(editor).wait_for_key()) return -1;
    char byte = 0;
    const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return static_cast<int>(count);
    if (byte == '\0') byte = end_of_input;
    const std::size_t result = std::mbrtowc(character, &byte, 1, &state);
    if (result == static_cast<std::size_t>(-1)) {
      state = {};  // no character of this locale
    } else if (result != static_cast<std::size_t>(-2)) {
      return 1;
    }
  }
}

unsigned char Editor::complete_word(EditLine* editor, int /*key*/) {
  const LineInfo* const info = el_line(editor);
  const std::string line(info->buffer, info->cursor);
  Editor& self = of(editor);
  return self.insert(self.complete_(line), line);
}

unsigned char Editor::insert(const Completion& completion, const std::string& line) {
  if (completion.texts.empty()) return CC_REFRESH_BEEP;
  const bool only = completion.texts.size() == 1;
  const std::string typed = line.substr(completion.begin);
  std::string text = common_beginning(completion.texts);
  if (only && completion.ends_word) text += ' ';
  if (!only && text.size() <= typed.size()) {
    list(completion.texts);
    return CC_REDISPLAY;
  }
  el_deletestr(editor_.get(), static_cast<int>(characters_in(typed)));
  el_insertstr(editor_.get(), text.c_str());
  return CC_REFRESH;
}

}  // namespace zt
