#include "client_mgr/base/client_mgr_cfg.h"

client_mgr_cfg g_cfg;
