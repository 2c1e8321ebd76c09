// ztmanager: the process behind isolated handles. It holds a database read-write, and makes the changes that isolated
// clients ask for. docs/operations.md says how it is run, docs/protocol.md what it understands.
//
// Status 0: ended by a signal, with nothing left behind. 1: it could not begin, or something was still in use at the end.
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>

#include "ztmanager/log.h"
#include "ztmanager/options.h"
#include "ztmanager/server.h"

namespace {

using manager::Options;

struct CommandLine {
  Options options;
  std::string log_level = "info";
};

void describe(CLI::App& app, CommandLine& line) {
  Options& options = line.options;
  const auto milliseconds = [&](const char* name, std::chrono::milliseconds& value, const char* text) {
    app.add_option_function<int>(
           name, [&value](int count) { value = std::chrono::milliseconds(count); }, text)
        ->check(CLI::Range(1, 24 * 3600 * 1000))
        ->type_name("MS")
        ->default_str(std::to_string(value.count()));
  };
  app.add_option("directory", options.directory, "The database's directory")->required();
  app.add_option("name", options.name, "The database's name")->required();
  app.add_option("--version-text", options.version, "The version text that the database was created with");
  app.add_option("--port", options.port, "The port of 127.0.0.1 to listen on; 0 for any free one")
      ->required()
      ->check(CLI::Range(0, 65535));
  app.add_option("--folder", options.folder,
                 "The folder of the images that clients may load and save; without it they may not");
  app.add_option("--max-clients", options.max_clients, "How many clients are served at a time")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  milliseconds("--login-time", options.login_time, "How long a connection may take to log in");
  milliseconds("--clear-interval", options.clear_interval, "How often the sessions of the dead are cleared");
  milliseconds("--shutdown-time", options.shutdown_time,
               "How long the end waits for clients that wait for the database");
  app.add_option("--log-level", line.log_level, "What is logged on standard error")
      ->check(CLI::IsMember({"debug", "info", "warning", "error", "off"}))
      ->capture_default_str();
}

// Each client needs three.
void raise_descriptor_limit() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// Threads that wait for the database use what would be destroyed, so nothing is.
int serve(const Options& options) {
  const manager::Folder folder(options.folder);
  manager::Database database(options.directory, options.name, options.version);
  const manager::Mailboxes mailboxes(database.base_path());
  mailboxes.remove_those_of_dead();
  manager::Server server(options, {database, mailboxes, folder});
  if (server.run()) return 0;
  spdlog::shutdown();
  _exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line;
  CLI::App app("Serves the isolated clients of a database.");
  describe(app, line);
  CLI11_PARSE(app, argc, argv);
  std::signal(SIGPIPE, SIG_IGN);
  spdlog::set_default_logger(spdlog::stderr_color_mt("ztmanager"));
  spdlog::set_level(spdlog::level::from_str(line.log_level));
  spdlog::flush_on(spdlog::level::debug);
  raise_descriptor_limit();
  try {
    return serve(line.options);
  } catch (const std::exception& error) {
    spdlog::error("{}", manager::for_log(error.what()));
    return 1;
  }
}
