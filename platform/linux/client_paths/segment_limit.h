// The largest TCP segments of clients that are carried to another VLAN. A tunnel takes smaller packets than the
// clients' interfaces do, and a path that answers nothing about that would end their connections.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_SEGMENT_LIMIT_H
#define PLATFORM_LINUX_CLIENT_PATHS_SEGMENT_LIMIT_H

namespace kx {

// Lowers the MSS option (RFC 9293, 3.7.1) of the TCP connections of clients that moved away from here, in both
// directions, to what fits `mtu`, the bytes of a client's IP packet. Needs nf_tables. Lasts as long as tun0. Returns 0
// or an errno.
//
// Their home does all of it: nf_tables does not see frames that a filter of traffic control has sent by another
// interface, which is how they leave the access point that the client is on.
int limit_segments(int mtu);

}  // namespace kx

#endif
