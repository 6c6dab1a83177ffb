#include "common/private_network.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

namespace meridian::test {

namespace {

std::string failure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

bool write_file(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

bool bring_up_loopback(std::string& error) {
    const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", sizeof request.ifr_name - 1);
    request.ifr_flags = IFF_UP | IFF_MULTICAST;
    bool ok = ioctl(control, SIOCSIFFLAGS, &request) == 0;
    if (!ok)
        error = failure("cannot bring up the loopback interface");

    rtentry route{};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(0xe0000000);
    std::memcpy(&route.rt_dst, &address, sizeof address);
    address.sin_addr.s_addr = htonl(0xf0000000);
    std::memcpy(&route.rt_genmask, &address, sizeof address);
    char device[] = "lo";
    route.rt_dev = device;
    route.rt_flags = RTF_UP;
    if (ok && ioctl(control, SIOCADDRT, &route) != 0) {
        ok = false;
        error = failure("cannot add a multicast route");
    }
    close(control);

    const int control6 = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    in6_rtmsg route6{};
    route6.rtmsg_dst.s6_addr[0] = 0xff;
    route6.rtmsg_dst_len = 8;
    route6.rtmsg_metric = 1;
    // A route of any other type over loopback is one that refuses.
    route6.rtmsg_type = RTN_LOCAL;
    route6.rtmsg_flags = RTF_UP | RTF_LOCAL;
    route6.rtmsg_ifindex = static_cast<int>(if_nametoindex("lo"));
    if (ok && ioctl(control6, SIOCADDRT, &route6) != 0) {
        ok = false;
        error = failure("cannot add an IPv6 multicast route");
    }
    close(control6);
    return ok;
}

} // namespace

bool enter_private_network(std::string& error) {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    const bool privileged = user == 0;
    if (unshare(CLONE_NEWNET | (privileged ? 0 : CLONE_NEWUSER)) != 0) {
        error = failure("cannot make a network namespace (root or unprivileged user namespaces are needed)");
        return false;
    }
    if (!privileged && !(write_file("/proc/self/setgroups", "deny") &&
                         write_file("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
                         write_file("/proc/self/gid_map", "0 " + std::to_string(group) + " 1"))) {
        error = failure("cannot become root of a user namespace");
        return false;
    }
    return bring_up_loopback(error);
}

void shell(const std::string& command) {
    const std::string whole = "{ PATH=$PATH:/usr/sbin:/sbin; " + command + "; } 2>&1";
    FILE* pipe = popen(whole.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string output;
    char buffer[256];
    while (fgets(buffer, sizeof buffer, pipe) != nullptr)
        output += buffer;
    ASSERT_EQ(pclose(pipe), 0) << command << "\n" << output;
}

OtherHost::OtherHost() {
    std::string error;
    bool ok = false;
    std::thread([&] {
        ok = unshare(CLONE_NEWNET) == 0 && bring_up_loopback(error);
        network_ = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    }).join();
    EXPECT_TRUE(ok) << error;
    EXPECT_GE(network_, 0);
}

OtherHost::~OtherHost() {
    if (network_ >= 0)
        close(network_);
}

std::string OtherHost::path() const {
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(network_);
}

void OtherHost::connect(const std::string& near_name, const std::string& near_address,
                        const std::string& far_name, const std::string& far_address) {
    const auto set_up = [](const std::string& name, const std::string& address) {
        // Automatic link-local addresses are not usable for the first seconds.
        shell("ip link set " + name + " addrgenmode none");
        shell("ip link set " + name + " up");
        if (!address.empty())
            shell("ip addr add " + address + (address.find(':') != std::string::npos ? " nodad" : "") +
                  " dev " + name);
    };
    shell("ip link add " + near_name + " type veth peer name " + far_name + " netns " + path());
    // Until the system has seen that the cable is plugged in, it drops what is sent.
    const auto wait_for_carrier = [](const std::string& name) {
        shell("for i in $(seq 300); do ip link show " + name +
              " | grep -q 'state UP' && exit 0; sleep 0.01; done; exit 1");
    };
    set_up(near_name, near_address);
    run([&] { set_up(far_name, far_address); });
    wait_for_carrier(near_name);
    run([&] { wait_for_carrier(far_name); });
}

void OtherHost::run(const std::function<void()>& function) {
    bool entered = false;
    std::thread([&] {
        entered = setns(network_, CLONE_NEWNET) == 0;
        if (entered)
            function();
    }).join();
    ASSERT_TRUE(entered);
}

} // namespace meridian::test
