// The client table as text.
#ifndef CLIENT_MGR_TABLES_CLIENT_TBL_DUMP_H
#define CLIENT_MGR_TABLES_CLIENT_TBL_DUMP_H

#include <cstdio>

#include "client_mgr/tables/client_tbl.h"

extern "C" {

// Writes one record as text. Returns the result of the last write.
int client_tbl_print(FILE *f, const client_info *rec);

// Writes every client with its PMK, in slot order. Only the owner may be able to read the stream.
void client_tbl_dump(FILE *f);
}

#endif
