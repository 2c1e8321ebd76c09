// Whether System V objects or key files of the demo's database exist.
//
// A System V key made from a file carries the file's inode number and device in its low 24 bits. So the
// objects of this database can be told from those of other programs that come and go meanwhile.
#ifndef CACHET_TOOLS_DEMO_SYSTEM_V_AUDIT_H
#define CACHET_TOOLS_DEMO_SYSTEM_V_AUDIT_H

#include <set>
#include <string>
#include <vector>

namespace demo {

class SystemVAudit {
 public:
  struct Found {
    int segments = 0;
    int semaphore_sets = 0;
    std::vector<std::string> files;  // in the database's directory
  };

  explicit SystemVAudit(std::string directory) : directory_(std::move(directory)) {}

  // Looks now, and remembers the keys of the files that are there. Objects are found by the files of this and
  // all earlier looks: call it once while the database is up, and again afterwards.
  Found look();

 private:
  std::string directory_;
  std::set<unsigned> keys_;
};

// How many lines /proc/sysvipc/NAME has: all objects of the machine.
int objects_of_all_programs(const std::string& name);

}  // namespace demo

#endif
