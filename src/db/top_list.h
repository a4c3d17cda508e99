// Scratch tables of the top summary report in top_list_db.
//
// The report's flag word chooses one list table (the first bit set of
// client 0x10, SSID 0x1000, AP 0x100, application 0x1); the AP and SSID
// lists also get total_client_list. top_list_db is opened on first use.
#pragma once

#include <cstdint>

// Creates the chosen table(s). 0, or -1 after logging the failure (the
// database cannot be opened, an unknown flag, a table that exists).
int tallyd_create_top_list_table(uint32_t flag);
// Drops them. 0, or -1 after logging.
int tallyd_drop_top_list_table(uint32_t flag);
// Replaces a damaged avp_top_list.db by an empty one (the file holds
// nothing between two reports). 0, or -1 when the new file cannot be opened.
int tallyd_replace_top_list_db();
