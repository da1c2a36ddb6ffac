// Requests for a WAN of each kind.
export const pppoe = {
    wanMode: 1, ipProtocol: 3, ipMode: 2, napt: true, vlanMode: true, vid: 100, prio: 5, mtu: 1492, service: 1,
    bind: '11000000', autoDns: true, autoDnsV6: true, ipv6PrefixProxy: true, pppUser: 'alice@isp.example', pppPwd: 'secret'
};
export const dhcp = {
    wanMode: 1, ipProtocol: 3, ipMode: 0, napt: true, vlanMode: true, vid: 200, mtu: 1500, service: 2, autoDns: true,
    autoDnsV6: true, ipv6PrefixProxy: true, bind: ''
};
export const static_wan = {
    wanMode: 1, ipProtocol: 3, ipMode: 1, napt: true, vlanMode: true, vid: 300, mtu: 1500, service: 1, bind: '00001000',
    ip: '192.0.2.10', mask: '255.255.255.0', gateway: '192.0.2.1', priDns: '192.0.2.53', secDns: '192.0.2.54',
    ipv6Addr: '2001:db8:3::10/64', ipv6Gateway: '2001:db8:3::1', ipv6Prefix: '2001:db8:300::/56', priDnsV6: '2001:db8:3::53',
    secDnsV6: '2001:db8:3::54', ipv6PrefixProxy: true
};
export const bridged = {
    wanMode: 0, ipProtocol: 1, vlanMode: true, vid: 400, mvid: 401, mtu: 1500, service: 3, disableLanDhcp: true, bind: '00010000'
};
