#include "db/db_set.h"

tallyd_db_set_t tallyd_db_set;

void tallyd_db_set_t::close_all() {
    for (sql_conn *c : {&db, &db_flash, &temp_db, &backup_hour_db, &top_list_db, &statistic_db})
        c->close();
}
