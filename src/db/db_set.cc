#include "db/db_set.h"

tallyd_db_set_t tallyd_db_set{};
