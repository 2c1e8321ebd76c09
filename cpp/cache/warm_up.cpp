// Warming a database up before it is used.
#include "cache/error.h"
#include "cachetx.h"
#include "rb_warm_up.h"

using namespace cachet;

bool ZtxWarmUp(ZtDbHandle database) {
  if (database->base.memory == nullptr) return report(database, ZT_ERR_GENERAL, message::database_not_open);
  make_resident(&database->base);
  return true;
}
