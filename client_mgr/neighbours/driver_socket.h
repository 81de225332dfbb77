// The throw-away socket that driver requests are issued on. It carries no traffic; a failure to make it shows as the
// failure of the request.
#ifndef CLIENT_MGR_NEIGHBOURS_DRIVER_SOCKET_H
#define CLIENT_MGR_NEIGHBOURS_DRIVER_SOCKET_H

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

class driver_socket {
public:
    driver_socket() : fd_(socket(AF_INET, SOCK_STREAM, 0)) {}
    ~driver_socket() { close(fd_); }
    driver_socket(const driver_socket &) = delete;
    driver_socket &operator=(const driver_socket &) = delete;

    // Issues ioctl `number` on `record` (struct ifreq or struct iwreq). Returns the ioctl's result.
    template <class Record>
    int request(unsigned number, Record &record) const {
        return ioctl(fd_, number, &record);
    }

private:
    int fd_;
};

#endif
