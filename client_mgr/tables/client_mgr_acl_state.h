// The ACL cache's state, for the module and its tests.
#ifndef CLIENT_MGR_TABLES_CLIENT_MGR_ACL_STATE_H
#define CLIENT_MGR_TABLES_CLIENT_MGR_ACL_STATE_H

#include "client_mgr/tables/client_mgr_acl.h"

extern acl_cache_entry client_acl_cache[ACL_CACHE_SIZE];
extern int32_t client_acl_hash[ACL_CACHE_SIZE];  // newest slot of each bucket's chain
extern int32_t client_mgr_acl_free_index;
extern int32_t client_mgr_acl_last_used;
extern int32_t client_mgr_acl_last_deleted;

#endif
