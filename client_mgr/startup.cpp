#include "client_mgr/client_mgr.h"

client_mgr_cfg g_cfg;
