// Drives the bus daemon's message handling with three clients, of which one has no rights. The input is a
// list of steps: a byte that names the client and what to do, and for bytes to receive a length of one byte
// and the bytes themselves, which need not end where a message ends. Ids are random in the daemon, so the
// input names them by tokens.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>

#include "access.h"
#include "bus.h"

namespace {

constexpr size_t client_count = 3;
constexpr size_t stranger = 2;

// In the input: the marker, then client and number of one of its objects, or no_object for the client itself.
constexpr std::array<uint8_t, 2> token_marker{0xf0, 0x1d};
constexpr size_t token_size = 4;
constexpr uint8_t no_object = 0xff;

enum step : uint8_t { step_receive, step_read, step_flush, step_reconnect, step_receive_fd, step_count };

struct connection {
    ubusd::client *client = nullptr;
    ubusd::unique_fd peer;
};

class scene {
public:
    scene() : bus_(access_)
    {
        for (size_t i = 0; i < client_count; i++)
            connect(i);
    }
    ~scene()
    {
        for (connection &place : connections_)
            bus_.disconnect(*place.client);
    }
    scene(const scene &) = delete;
    scene &operator=(const scene &) = delete;

    void run(std::span<const uint8_t> input)
    {
        while (!input.empty()) {
            const size_t who = input[0] / step_count % client_count;
            const auto what = static_cast<step>(input[0] % step_count);
            input = input.subspan(1);
            if (what == step_receive || what == step_receive_fd)
                receive(who, take_bytes(input), what == step_receive_fd);
            else if (what == step_read)
                read_all(who);
            else if (what == step_flush)
                bus_.flush(*connections_[who].client);
            else
                reconnect(who);
        }
    }

private:
    void connect(size_t who)
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
            abort();
        // The least the kernel gives, so that a short input already backs a client up.
        const int buffer_size = 1;
        setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &buffer_size, sizeof(buffer_size));
        const bool trusted = who != stranger;
        connections_[who].peer = ubusd::unique_fd(ends[1]);
        connections_[who].client =
            &bus_.connect(ubusd::unique_fd(ends[0]), {trusted ? "root" : "nobody", "group", trusted});
    }
    void reconnect(size_t who)
    {
        bus_.disconnect(*connections_[who].client);
        connect(who);
    }
    void read_all(size_t who)
    {
        static std::array<uint8_t, 65536> sink;
        while (recv(connections_[who].peer.get(), sink.data(), sink.size(), 0) > 0)
            continue;
    }
    void receive(size_t who, std::vector<uint8_t> bytes, bool with_fd)
    {
        put_ids(bytes);
        ubusd::unique_fd fd(with_fd ? open("/dev/null", O_RDONLY | O_CLOEXEC) : -1);
        if (!bus_.receive(*connections_[who].client, bytes, std::move(fd)))
            reconnect(who);
    }
    static std::vector<uint8_t> take_bytes(std::span<const uint8_t> &input)
    {
        if (input.empty())
            return {};
        const size_t size = std::min<size_t>(input[0], input.size() - 1);
        const auto taken = input.subspan(1, size);
        input = input.subspan(1 + size);
        return {taken.begin(), taken.end()};
    }
    void put_ids(std::vector<uint8_t> &bytes) const
    {
        for (size_t i = 0; i + token_size <= bytes.size(); i++) {
            if (bytes[i] != token_marker[0] || bytes[i + 1] != token_marker[1])
                continue;
            const ubusd::client &owner = *connections_[bytes[i + 2] % client_count].client;
            uint32_t id = owner.id();
            if (bytes[i + 3] != no_object && !owner.objects.empty())
                id = owner.objects[bytes[i + 3] % owner.objects.size()]->id;
            for (size_t k = 0; k < token_size; k++)
                bytes[i + k] = static_cast<uint8_t>(id >> (24 - 8 * k));
        }
    }

    ubusd::access_rules access_;
    ubusd::bus bus_;
    std::array<connection, client_count> connections_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    scene().run({data, size});
    return 0;
}
