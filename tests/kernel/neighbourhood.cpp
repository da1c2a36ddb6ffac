#include "kernel/neighbourhood.h"

#include "support/process.h"

#include <arpa/inet.h>
#include <cstring>
#include <fstream>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr protocol all_protocols[] = {protocol::ipv4, protocol::ipv6, protocol::arp};
constexpr delivery all_deliveries[] = {delivery::known, delivery::unknown, delivery::everybody};
// A packet may wait for the next hop's address, which is asked for three times, once a second.
constexpr std::chrono::milliseconds slowest_packet{5000};
constexpr char far_away[] = "203.0.113.77";
constexpr char far_away_v6[] = "2001:db8:ffff::77";
constexpr char lan_mac[] = "00:11:22:33:44:55";

// A text that no other frame holds.
std::string new_text()
{
    static unsigned number = 0;
    return "korvel-probe-" + std::to_string(++number) + ".";
}

void run(const program_arguments &words)
{
    const program_result result = run_program(words);
    if (result.status)
        throw std::runtime_error(words[0] + ": " + result.errors);
}

std::string pair(const std::string &near, const std::string &network, const std::string &far)
{
    return "link add " + near + " type veth peer name " + far + " netns " + network + "\nlink set " + near +
           " up\n";
}

std::string lan_network(unsigned number)
{
    return "lan" + std::to_string(number);
}

std::string line_network(unsigned vid)
{
    return "isp" + std::to_string(vid);
}

void run_batch(const std::string &network, const std::string &commands)
{
    const std::string path = "/run/commands";
    std::ofstream(path) << commands;
    if (network.empty())
        run({"ip", "-batch", path});
    else
        run({"ip", "-n", network, "-batch", path});
}

void make_lan_host(unsigned number)
{
    const std::string last = std::to_string(10 + number);
    run_batch(lan_network(number), "link set host up\naddr add 192.168.1." + last +
                                       "/24 dev host\naddr add fd6b:7672:6c00::" + last +
                                       "/64 dev host nodad\n");
}

// Answers for the gateway's next hops.
void make_provider(unsigned vid)
{
    const std::string number = std::to_string(vid / 100);
    run_batch(line_network(vid), "link set line." + std::to_string(vid) +
                                     " up\naddr add 192.0.2.1/24 dev line." + std::to_string(vid) +
                                     "\naddr add 2001:db8:" + number + "::1/64 dev line." +
                                     std::to_string(vid) + " nodad\n");
}

void make_networks()
{
    std::string networks = "netns add " + line_network(0) + "\n";
    std::string devices = std::string("link add br-lan address ") + lan_mac +
                          " type bridge\naddr add 192.168.1.1/24 brd + dev br-lan\nlink set br-lan up\n" +
                          "addr add fd6b:7672:6c00::1/64 dev br-lan nodad\n" +
                          pair("pon", line_network(0), "line");
    for (unsigned number = 1; number <= lan_ports; number++) {
        const std::string port = "eth0." + std::to_string(number);
        networks += "netns add " + lan_network(number) + "\n";
        devices += pair(port, lan_network(number), "host") + "link set " + port + " master br-lan\n";
    }
    // Providers have addresses of their own, or the bridge would take them for one.
    std::string line = "link set line up\n";
    for (const unsigned vid : vlans) {
        networks += "netns add " + line_network(vid) + "\n";
        line += "link add link line name line." + std::to_string(vid) + " address 02:00:00:00:01:0" +
                std::to_string(vid / 100) + " netns " + line_network(vid) + " type vlan id " +
                std::to_string(vid) + "\n";
    }
    run_batch("", networks + devices);
    run_batch(line_network(0), line);
    for (unsigned number = 1; number <= lan_ports; number++)
        make_lan_host(number);
    for (const unsigned vid : vlans)
        make_provider(vid);
}

std::string joined(std::string all, const std::string &one)
{
    return all + (all.empty() ? "" : ", ") + one;
}

std::string names_of_all_kinds()
{
    std::string names;
    for (const protocol what : all_protocols)
        for (const delivery how : all_deliveries)
            names = joined(names, name_of(what, how));
    return names;
}

std::string names_of_all_housekeeping()
{
    std::string names;
    for (const housekeeping what : all_housekeeping)
        names = joined(names, name_of(what));
    return names;
}

void send_from(const std::string &source, const std::string &text)
{
    const int udp = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    (void)inet_pton(AF_INET, source.c_str(), &own.sin_addr);
    sockaddr_in other = own;
    other.sin_port = htons(9000);
    (void)inet_pton(AF_INET, far_away, &other.sin_addr);
    const bool sent = bind(udp, reinterpret_cast<const sockaddr *>(&own), sizeof(own)) == 0 &&
                      sendto(udp, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&other),
                             sizeof(other)) > 0;
    const int reason = errno;
    close(udp);
    if (!sent)
        throw std::runtime_error("send from " + source + ": " + strerror(reason));
}

} // namespace

const std::string all_kinds = names_of_all_kinds();
const std::string all_kinds_of_housekeeping = names_of_all_housekeeping();

place::place(std::string name, const std::string &network, const std::string &device,
             const std::string &feeder, unsigned tag)
    : name_(std::move(name)), host_(network, device), feeder_("", feeder), tag_(tag)
{}

void place::feed(const frame &bytes) const
{
    feeder_.send(tag_ ? with_tag(bytes, tag_) : bytes);
}

void place::forget()
{
    host_.forget();
    feeder_.forget();
}

bool place::has_entered(const std::string &text)
{
    return (tag_ ? feeder_.passed_on(text) : feeder_.got(text)) != nullptr;
}

neighbourhood::neighbourhood()
{
    make_networks();
    lan_interface_ = std::make_unique<wire>("", "br-lan");
    for (unsigned number = 1; number <= lan_ports; number++)
        ports_.push_back(std::make_unique<place>("port " + std::to_string(number), lan_network(number),
                                                 "host", "eth0." + std::to_string(number)));
    lines_[0] = std::make_unique<place>("line", line_network(0), "line", "pon");
    for (const unsigned vid : vlans)
        lines_[vid] = std::make_unique<place>("line " + std::to_string(vid), line_network(vid),
                                              "line." + std::to_string(vid), "pon", vid);
}

std::vector<place *> neighbourhood::everywhere()
{
    std::vector<place *> places;
    for (const auto &port : ports_)
        places.push_back(port.get());
    for (const auto &[vid, line] : lines_)
        places.push_back(line.get());
    return places;
}

// What arrived, of frames that are sent in a row with a last one behind them that certainly arrives.
std::string neighbourhood::which_arrive(const sender &from, const receiver &to,
                                        const std::vector<frame_kind> &kinds)
{
    const on_one_processor in_order;
    std::vector<std::string> texts;
    for (const frame_kind &kind : kinds) {
        texts.push_back(new_text());
        from.send(kind.make(texts.back()));
    }
    const std::string last = new_text();
    to.send_last(last);
    if (!wait_until([&] { return to.got(last); }))
        throw std::runtime_error("the frame that always arrives did not");
    std::string arrived;
    for (size_t i = 0; i < kinds.size(); i++) {
        if (!from.sent(texts[i]))
            throw std::runtime_error(kinds[i].name + " did not get into the gateway");
        if (to.got(texts[i]))
            arrived = joined(arrived, kinds[i].name);
    }
    return arrived;
}

namespace {

std::vector<neighbourhood::frame_kind> plain_kinds(const mac_address &from, const mac_address &to)
{
    std::vector<neighbourhood::frame_kind> kinds;
    for (const protocol what : all_protocols)
        for (const delivery how : all_deliveries)
            kinds.push_back({name_of(what, how), [=](const std::string &text) {
                                 return plain_frame(what, how, from, to, text);
                             }});
    return kinds;
}

std::vector<neighbourhood::frame_kind> housekeeping_kinds(const mac_address &from)
{
    std::vector<neighbourhood::frame_kind> kinds;
    for (const housekeeping what : all_housekeeping)
        kinds.push_back(
            {name_of(what), [=](const std::string &text) { return housekeeping_frame(what, from, text); }});
    return kinds;
}

// What nobody takes notice of, but by which the bridge learns where a host is.
frame greeting(const mac_address &from)
{
    return plain_frame(protocol::arp, delivery::everybody, from, from, new_text());
}

neighbourhood::sender host_at(place &from)
{
    from.forget();
    return {[&from](const frame &bytes) { from.host().send(bytes); },
            [&from](const std::string &text) { return from.has_entered(text); }};
}

neighbourhood::receiver receiver_at(place &to)
{
    to.forget();
    return {[&to](const std::string &text) {
                to.feed(plain_frame(protocol::ipv4, delivery::everybody, to.host().address(),
                                    to.host().address(), text));
            },
            [&to](const std::string &text) { return to.host().got(text) != nullptr; }};
}

} // namespace

std::string neighbourhood::exchanged(place &from, place &to)
{
    to.host().send(greeting(to.host().address()));
    from.host().send(greeting(from.host().address()));
    return which_arrive(host_at(from), receiver_at(to),
                        plain_kinds(from.host().address(), to.host().address()));
}

std::string neighbourhood::housekeeping_between(place &from, place &to)
{
    return which_arrive(host_at(from), receiver_at(to), housekeeping_kinds(from.host().address()));
}

std::string neighbourhood::housekeeping_to_gateway(place &from)
{
    lan_interface_->forget();
    const mac_address own = from.host().address();
    const receiver gateway{[&from, own](const std::string &text) {
                               from.host().send(
                                   plain_frame(protocol::ipv4, delivery::everybody, own, own, text));
                           },
                           [this](const std::string &text) { return lan_interface_->got(text) != nullptr; }};
    return which_arrive(host_at(from), gateway, housekeeping_kinds(own));
}

std::string neighbourhood::housekeeping_from_gateway(place &to)
{
    const sender gateway{[this](const frame &bytes) { lan_interface_->send(bytes); },
                         [](const std::string &) { return true; }};
    return which_arrive(gateway, receiver_at(to), housekeeping_kinds(lan_interface_->address()));
}

fate neighbourhood::fate_of(const std::function<void(const std::string &text)> &send)
{
    const std::vector<place *> places = everywhere();
    for (place *const each : places)
        each->forget();
    const std::string text = new_text();
    send(text);
    fate known;
    (void)wait_until(
        [&] {
            for (place *const each : places)
                if (const frame *const seen = each->host().got(text))
                    known = joined(known, is_prohibition(*seen) ? "prohibited" : each->name());
            return !known.empty();
        },
        slowest_packet);
    return known.empty() ? "nowhere" : known;
}

fate neighbourhood::packet_from_port(unsigned number)
{
    return fate_of([&](const std::string &text) {
        const wire &host = port(number).host();
        host.send(udp_frame(host.address(), lan_interface_->address(),
                            {"192.168.1." + std::to_string(10 + number), far_away}, text));
    });
}

fate neighbourhood::ipv6_packet_from_port(unsigned number)
{
    return fate_of([&](const std::string &text) {
        const wire &host = port(number).host();
        host.send(udp6_frame(host.address(), lan_interface_->address(),
                             {"fd6b:7672:6c00::" + std::to_string(10 + number), far_away_v6}, text));
    });
}

fate neighbourhood::packet_from_gateway(const std::string &source)
{
    return fate_of([&](const std::string &text) { send_from(source, text); });
}
