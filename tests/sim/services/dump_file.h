// The file of the client table's dump.
#ifndef TESTS_SIM_SERVICES_DUMP_FILE_H
#define TESTS_SIM_SERVICES_DUMP_FILE_H

#include <string>

namespace sim {

class dump_file_service {
public:
    ~dump_file_service();
    // The file that the daemon opens as "/tmp/clientmgr_cli", in a directory of this platform's own.
    const std::string &dump_path();

private:
    std::string dump_file_;
};

}  // namespace sim

#endif
