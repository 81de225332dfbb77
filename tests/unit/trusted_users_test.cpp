#include "common/trusted_users.h"

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>

#include "common/local_ipc.h"
#include "common/paths.h"
#include "common/permissions.h"
#include "tests/unit/private_root.h"
#include "wire/driver_service.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t daemon_id = 64121, radio_id = 64122, stranger = 64123;
constexpr uid_t overflow_uid = 65534;
constexpr char endpoint[] = "/kx/ipc/captive_app";

// Only root can give directories to others.
class trusted_users : public private_root {
protected:
    trusted_users() {
        parent_ = root();
        chmod(parent_.c_str(), 0711);
        setenv("KX_ROOT", (parent_ + "/run").c_str(), 1);
    }

    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can give directories to other users";
        }
        kx::make_private_directories(kx::place("/kx/ipc"));
        give("", 0710, daemon_id, radio_id);
        give("/kx", 0710, daemon_id, radio_id);
        give("/kx/ipc", 02710, daemon_id, radio_id);
        give(kx::driver_directory, 02710, radio_id, daemon_id);
        give(kx::radio_directory, 02710, radio_id, daemon_id);
    }

    static void give(std::string_view directory, mode_t mode, uid_t user, gid_t group) {
        const std::string path = kx::place(directory);
        mkdir(path.c_str(), 0700);
        ASSERT_EQ(chown(path.c_str(), user, group), 0) << path;
        ASSERT_EQ(chmod(path.c_str(), mode), 0) << path;
    }

    // Whether `work` succeeds in a process of that user.
    template <typename Work>
    static bool as_user(uid_t user, gid_t group, Work work) {
        const pid_t pid = fork();
        if (pid == 0) {
            bool done = false;
            try {
                done = setgroups(0, nullptr) == 0 && setgid(group) == 0 && setuid(user) == 0 && work();
            } catch (const std::exception &) {
                done = false;
            }
            _exit(done ? 0 : 1);
        }
        int status = -1;
        waitpid(pid, &status, 0);
        return status == 0;
    }

    static bool send_message() {
        return kx::ipc_socket::for_sending().send(endpoint, 7, kx::ipc_flag_notification, {}) == kx::ipc_result::sent;
    }

    std::string parent_;
};

}  // namespace

TEST_F(trusted_users, are_root_this_one_and_the_owners_of_the_two_directories) {
    EXPECT_EQ(kx::daemons_user(), daemon_id);
    for (const uid_t user : {uid_t{0}, geteuid(), daemon_id, radio_id}) {
        EXPECT_TRUE(kx::is_trusted_user(user)) << user;
    }
    for (const uid_t user : {stranger, overflow_uid, static_cast<uid_t>(-1)}) {
        EXPECT_FALSE(kx::is_trusted_user(user)) << user;
    }
}

TEST_F(trusted_users, have_directories_that_nobody_else_can_have_made) {
    chmod(parent_.c_str(), 01777);
    EXPECT_FALSE(kx::daemons_user());
    EXPECT_FALSE(kx::is_trusted_user(daemon_id));
    EXPECT_FALSE(kx::is_trusted_user(radio_id)) << "the directory above belongs to a user without trust";
    chmod(parent_.c_str(), 0711);
    for (const mode_t mode : {0730, 0703, 01777}) {
        chmod(kx::place("/kx").c_str(), mode);
        EXPECT_FALSE(kx::is_trusted_user(radio_id)) << mode;
        EXPECT_TRUE(kx::is_trusted_user(daemon_id)) << mode;
    }
    chmod(kx::place("/kx").c_str(), 0710);
    give("/kx", 0710, stranger, stranger);
    EXPECT_FALSE(kx::is_trusted_user(radio_id));
}

TEST_F(trusted_users, own_no_link_and_no_file) {
    const std::string radio = kx::place(kx::radio_directory), elsewhere = parent_ + "/elsewhere";
    fs::rename(radio, elsewhere);
    EXPECT_FALSE(kx::is_trusted_user(radio_id));
    fs::create_directory_symlink(elsewhere, radio);
    ASSERT_EQ(lchown(radio.c_str(), radio_id, radio_id), 0);
    EXPECT_FALSE(kx::is_trusted_user(radio_id));
}

TEST_F(trusted_users, are_not_those_whom_a_user_namespace_hides) {
    give("", 0710, overflow_uid, overflow_uid);
    give(kx::radio_directory, 0710, overflow_uid, overflow_uid);
    EXPECT_FALSE(kx::daemons_user());
    EXPECT_FALSE(kx::is_trusted_user(overflow_uid));
}

TEST_F(trusted_users, reach_each_others_sockets_and_no_other_user_does) {
    kx::ipc_socket server = kx::ipc_socket::open(endpoint);
    EXPECT_EQ(mode_of(kx::place(endpoint)), 0660U);
    EXPECT_TRUE(as_user(radio_id, radio_id, send_message));
    const std::optional<kx::ipc_message> message = server.receive();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->id, 7U);

    EXPECT_FALSE(as_user(stranger, stranger, send_message)) << "the directory is closed";
    EXPECT_TRUE(as_user(stranger, radio_id, send_message)) << "the group may send";
    int dropped = 0;
    server.on_dropped = [&](const kx::ipc_datagram &datagram) {
        dropped++;
        EXPECT_TRUE(datagram.stranger);
        EXPECT_EQ(datagram.uid, stranger);
    };
    EXPECT_FALSE(server.receive());
    EXPECT_EQ(dropped, 1);
}

TEST_F(trusted_users, cannot_use_each_others_directories) {
    const auto make_file = [](std::string_view directory) {
        return [path = kx::place(directory) + "/file"] { return std::ofstream(path).good(); };
    };
    EXPECT_FALSE(as_user(radio_id, radio_id, make_file("/kx/ipc")));
    EXPECT_FALSE(as_user(radio_id, radio_id, make_file("")));
    EXPECT_FALSE(as_user(daemon_id, daemon_id, make_file(kx::radio_directory)));
    EXPECT_TRUE(as_user(radio_id, radio_id, make_file(kx::radio_directory)));
}

TEST_F(trusted_users, find_the_radio_services_directories_safe) {
    const auto check = [] {
        kx::require_safe_radio_directories();
        return true;
    };
    EXPECT_TRUE(as_user(radio_id, radio_id, check));
    EXPECT_FALSE(as_user(stranger, radio_id, check)) << "another user's directory";
    chmod(kx::place(kx::driver_directory).c_str(), 02730);
    EXPECT_FALSE(as_user(radio_id, radio_id, check)) << "the group may write";
    chmod(kx::place(kx::driver_directory).c_str(), 02710);
    chmod(parent_.c_str(), 0777);
    EXPECT_FALSE(as_user(radio_id, radio_id, check)) << "others may put another root there";
}
