#include "wan/dns_servers.h"

#include "base/text.h"

#include <iterator>

void dns_sorter::take(const char *server)
{
    const text_ref v4[] = {record_.priDns, record_.secDns};
    const text_ref v6[] = {record_.priDnsV6, record_.secDnsV6};
    if (strchr(server, '.')) {
        if (v4_count_ < std::size(v4))
            v4[v4_count_++].set(server);
    } else if (strchr(server, ':')) {
        if (v6_count_ < std::size(v6))
            v6[v6_count_++].set(server);
    }
}
