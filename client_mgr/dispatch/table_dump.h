// The dump of the client table that a local message asks for.
#ifndef CLIENT_MGR_DISPATCH_TABLE_DUMP_H
#define CLIENT_MGR_DISPATCH_TABLE_DUMP_H

// Writes the client table to "/tmp/clientmgr_cli". A failure is logged.
void dump_client_table();

#endif
