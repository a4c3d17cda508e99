#include "base/sys_info.h"

tallyd_sys_info_t tallyd_sys_info{};
