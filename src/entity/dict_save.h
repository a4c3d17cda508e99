// New dictionary entries waiting for their repository save.
//
// Mapping queues every entry it creates here instead of saving its list
// there and then; dict_save_flush appends everything one list has queued and
// saves that list once (a durable write of the whole list, so once per
// message or task run rather than once per new id). The queue keeps the
// order in which ids were given, which is the order of the list's children.
#pragma once

#include <cstdint>

#include "entity/dict_table.h"

void dict_save_queue(const dict_kind &k, const char *key, int32_t counter);

// Saves the entries queued for k's list. An absent list drops them (they live
// in memory only, as when the list was absent at mapping time). A save that
// fails was logged by the repository; the entries stay queued and go with the
// next flush. 0 when nothing was queued or all is saved, -1 when the save
// failed.
int dict_save_flush(const dict_kind &k);

// Forgets what k has queued (dictionary reset in tests).
void dict_save_drop(const dict_kind &k);

// Saves of any list written since start.
uint64_t dict_save_count();
