// tr("..."), the one way in which the tool's messages come about.
#ifndef CACHET_TOOLS_ZT_TRANSLATION_H
#define CACHET_TOOLS_ZT_TRANSLATION_H

#include "inspect/translate.h"

namespace zt {

using cachet::inspect::tr;
using cachet::inspect::trn;

}  // namespace zt

#endif
