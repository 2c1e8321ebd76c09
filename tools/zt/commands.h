// The makers of all commands, one for each file in commands/.
#ifndef CACHET_TOOLS_ZT_COMMANDS_H
#define CACHET_TOOLS_ZT_COMMANDS_H

#include "zt/command.h"

namespace zt {

std::unique_ptr<Command> make_ls();
std::unique_ptr<Command> make_info();
std::unique_ptr<Command> make_schema();
std::unique_ptr<Command> make_tables();
std::unique_ptr<Command> make_create();
std::unique_ptr<Command> make_get();
std::unique_ptr<Command> make_count();
std::unique_ptr<Command> make_insert();
std::unique_ptr<Command> make_set();
std::unique_ptr<Command> make_delete();
std::unique_ptr<Command> make_ps();
std::unique_ptr<Command> make_import();
std::unique_ptr<Command> make_export();
std::unique_ptr<Command> make_save();
std::unique_ptr<Command> make_load();
std::unique_ptr<Command> make_bench();
std::unique_ptr<Command> make_verify();
std::unique_ptr<Command> make_top();
std::unique_ptr<Command> make_stat();
std::unique_ptr<Command> make_doctor();
std::unique_ptr<Command> make_rm();
std::unique_ptr<Command> make_reap();
std::unique_ptr<Command> make_locks();
std::unique_ptr<Command> make_shell();

}  // namespace zt

#endif
