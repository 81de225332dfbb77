// Clients that associate to a VAP as their home.
#ifndef CLIENT_MGR_CLIENTS_ASSOCIATION_H
#define CLIENT_MGR_CLIENTS_ASSOCIATION_H

#include "wire/local_messages.h"

// Makes the client a home client of the VAP, whatever was known of it before. Writes the address that is reported to
// event.ip: the stored one when the client is on this VAP already, else 0. Does nothing while the link to the
// controller is not ready.
void associate(association &event);

#endif
