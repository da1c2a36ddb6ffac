#include "kernel/wire.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <arpa/inet.h>
#include <sched.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr size_t greatest_frame = 2048;
constexpr int receive_buffer = 1 << 20;

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + strerror(errno));
}

// This thread in a network; its end brings the thread back.
class stay {
public:
    explicit stay(const std::string &network) : home_(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC))
    {
        if (network.empty())
            return;
        const std::string path = "/var/run/netns/" + network;
        const int there = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (there < 0 || setns(there, CLONE_NEWNET))
            fail(path);
        close(there);
    }
    ~stay()
    {
        if (setns(home_, CLONE_NEWNET))
            abort(); // every later test would run in another network
        close(home_);
    }
    stay(const stay &) = delete;
    stay &operator=(const stay &) = delete;

private:
    int home_;
};

int packet_socket(const std::string &network)
{
    const stay there(network);
    const int made = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0)
        fail("packet socket");
    return made;
}

mac_address address_of(int any_socket, const std::string &device)
{
    ifreq request{};
    device.copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(any_socket, SIOCGIFHWADDR, &request))
        fail(device);
    mac_address address;
    std::copy_n(request.ifr_hwaddr.sa_data, address.size(), address.begin());
    return address;
}

// Begins to receive. The tag of a frame is not in its bytes, it comes beside them.
void attach(int raw, const std::string &device)
{
    ifreq request{};
    device.copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(raw, SIOCGIFINDEX, &request))
        fail(device);
    sockaddr_ll place{};
    place.sll_family = AF_PACKET;
    place.sll_protocol = htons(ETH_P_ALL);
    place.sll_ifindex = request.ifr_ifindex;
    const int on = 1;
    if (setsockopt(raw, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof(on)) ||
        setsockopt(raw, SOL_PACKET, PACKET_AUXDATA, &on, sizeof(on)) ||
        setsockopt(raw, SOL_SOCKET, SO_RCVBUFFORCE, &receive_buffer, sizeof(receive_buffer)) ||
        bind(raw, reinterpret_cast<const sockaddr *>(&place), sizeof(place)))
        fail(device);
}

bool came_with_tag(msghdr &message)
{
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_PACKET || part->cmsg_type != PACKET_AUXDATA)
            continue;
        tpacket_auxdata data;
        memcpy(&data, CMSG_DATA(part), sizeof(data));
        return data.tp_status & TP_STATUS_VLAN_VALID;
    }
    return false;
}

} // namespace

wire::wire(const std::string &network, const std::string &device)
    : device_(network + (network.empty() ? "" : "/") + device), socket_(packet_socket(network))
{
    try {
        address_ = address_of(socket_, device);
        attach(socket_, device);
    } catch (...) {
        close(socket_);
        throw;
    }
}

wire::~wire()
{
    close(socket_);
}

void wire::send(const frame &bytes) const
{
    if (::send(socket_, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        fail("send on " + device_);
}

bool wire::take_arrival()
{
    arrival next{frame(greatest_frame), false};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(tpacket_auxdata))];
    iovec place{next.bytes.data(), next.bytes.size()};
    msghdr message{};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const ssize_t length = recvmsg(socket_, &message, 0);
    if (length < 0) {
        // A device that was down for a moment tells so once.
        if (errno == EAGAIN || errno == ENETDOWN)
            return errno == ENETDOWN;
        fail("receive on " + device_);
    }
    next.bytes.resize(static_cast<size_t>(length));
    next.tagged = came_with_tag(message);
    arrivals_.push_back(std::move(next));
    return true;
}

void wire::take_arrivals()
{
    while (take_arrival())
        ;
}

void wire::forget()
{
    take_arrivals();
    arrivals_.clear();
}

const frame *wire::find(const std::string &text, bool tagged)
{
    take_arrivals();
    const auto found = std::find_if(arrivals_.begin(), arrivals_.end(), [&](const arrival &one) {
        return one.tagged == tagged && holds(one.bytes, text);
    });
    return found == arrivals_.end() ? nullptr : &found->bytes;
}

on_one_processor::on_one_processor()
{
    cpu_set_t first;
    CPU_ZERO(&first);
    CPU_SET(0, &first);
    if (sched_setaffinity(0, sizeof(first), &first))
        fail("sched_setaffinity");
}

on_one_processor::~on_one_processor()
{
    cpu_set_t all;
    memset(&all, 0xff, sizeof(all));
    (void)sched_setaffinity(0, sizeof(all), &all);
}
