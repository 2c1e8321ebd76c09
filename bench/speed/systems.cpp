// See systems.h. cachet comes in modules, which are loaded when they are asked for and stay.
#include "systems.h"

#include <dlfcn.h>

#include <filesystem>

#include "channel.h"
#include "module.h"
#include "systems/peers.h"

namespace bench {
namespace {

constexpr char cachet_module[] = "bench_cachet.so";
constexpr char plain_module[] = "bench_cachet_plain.so";

void* module_symbol(const char* module, const char* symbol) {
  const std::string file = std::filesystem::read_symlink("/proc/self/exe").parent_path() / module;
  void* const handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* const address = handle == nullptr ? nullptr : dlsym(handle, symbol);
  if (address == nullptr) throw std::runtime_error(dlerror());
  return address;
}

std::unique_ptr<System> from_module(const char* module, WarmUp warm_up) {
  const auto make =
      reinterpret_cast<decltype(&bench_make_system)>(module_symbol(module, "bench_make_system"));
  return std::unique_ptr<System>(make(warm_up));
}

struct Entry {
  const char* name;
  std::unique_ptr<System> (*make)();
};

constexpr Entry entries[] = {
    {"cachet", [] { return from_module(cachet_module, WarmUp::yes); }},
    {"cachet-unwarmed", [] { return from_module(cachet_module, WarmUp::no); }},
    {"cachet-plain", [] { return from_module(plain_module, WarmUp::no); }},
#ifdef BENCH_WITH_LMDB
    {"lmdb", make_lmdb},
#endif
#ifdef BENCH_WITH_SQLITE
    {"sqlite-memory", make_sqlite_memory},
    {"sqlite-wal", make_sqlite_wal},
#endif
#ifdef BENCH_WITH_BDB
    {"bdb", make_bdb},
#endif
#ifdef BENCH_WITH_BOOST_INTERPROCESS
    {"boost-interprocess", make_boost_interprocess},
#endif
#ifdef BENCH_WITH_REDIS
    {"redis", make_redis},
#endif
#ifdef BENCH_WITH_ABSL_BTREE
    {"absl-btree", make_absl_btree},
#endif
};

}  // namespace

std::vector<std::string> available_systems() {
  std::vector<std::string> names;
  for (const Entry& entry : entries) names.emplace_back(entry.name);
  return names;
}

std::unique_ptr<System> make_system(const std::string& name) {
  for (const Entry& entry : entries) {
    if (name == entry.name) return entry.make();
  }
  throw std::runtime_error("there is no system '" + name + "' in this build");
}

std::unique_ptr<Channel> make_mailbox(const std::string& folder) {
  void* const symbol = module_symbol(cachet_module, "bench_make_mailbox");
  return std::unique_ptr<Channel>(reinterpret_cast<decltype(&bench_make_mailbox)>(symbol)(folder.c_str()));
}

}  // namespace bench
