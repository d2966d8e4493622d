// The OLE Automation argument builders shared with the API tests, under this program's namespace.
#pragma once

#include "support/ole_helpers.h"

namespace wintest {
namespace ole = testing_ole;
}  // namespace wintest
