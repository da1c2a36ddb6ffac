// Editing: each field changes what it stands for and nothing else.
import assert from 'node:assert/strict';
import { writeFileSync } from 'node:fs';
import { bridged, bus_replies, dhcp, edit, pppoe, static_wan, web_test } from './fixture.mjs';
import { run, uci } from './bench/bus.mjs';
import { until } from './bench/gateway.mjs';

const types = {
    boolean: ['napt', 'vlanMode', 'disableLanDhcp', 'autoDns', 'autoDnsV6', 'ipv6PrefixProxy', 'pppDialMode', 'ipv6DsLite'],
    number: ['wanMode', 'ipProtocol', 'ipMode', 'vid', 'mvid', 'prio', 'mtu', 'service', 'iphostId'],
    string: ['bind', 'priDns', 'secDns', 'priDnsV6', 'secDnsV6', 'ip', 'mask', 'gateway', 'ipv6Addr', 'ipv6Gateway', 'ipv6Prefix',
        'pppUser', 'pppPwd', 'pppServName', 'ipv6AddrDsLite']
};

// Every argument is there, and of the type without which it would count as missing.
export function assert_complete(args, left_out = []) {
    for (const [type, names] of Object.entries(types)) {
        for (const name of names.filter(each => !left_out.includes(each)))
            assert.equal(typeof args[name], type, name);
    }
    assert.ok(types.number.every(name => Number.isInteger(args[name])));
}

// Lines that went, with "-", and lines that came, with "+".
function difference(before, after) {
    return [...before.filter(line => !after.includes(line)).map(line => `-${line}`),
        ...after.filter(line => !before.includes(line)).map(line => `+${line}`)];
}

const was_now = (option, was, now) => [`-${option}='${was}'`, `+${option}='${now}'`];

// Edits one after the other: [ what is set, what has changed in the configuration ]; at once, and with a way back.
function edits_test(name, wan, edits) {
    const make_edits = async (gateway, make) => {
        for (const [values, expected] of edits) {
            const before = await gateway.stored(1);
            await make(values);
            const changed = difference(before, await gateway.stored(1));
            assert.deepEqual(changed.sort(), expected.flat().sort(), JSON.stringify(values));
        }
    };
    web_test(name, { arrange: gateway => gateway.add(wan) }, ({ bridge, gateway, user }) => make_edits(gateway, async values => {
        await edit(user, values);
        assert_complete(bridge.calls.filter(call => call.method === 'modify').at(-1).args);
    }));
    web_test(`${name}, with a way back`, { arrange: gateway => gateway.add(wan) }, ({ bridge, gateway, user }) => make_edits(gateway, async values => {
        await edit(user, { ...values, wayBack: true });
        await user.press_button('Keep');
        await user.wait_for_text('#korvel-message', 'The change stays.');
        await user.wait('the end of the trial', () => !document.querySelector('#korvel-trial').offsetParent);
        assert.deepEqual(bridge.calls.filter(call => call.object === 'korvel'), []);
    }));
}

const ports = (...bound) => "device.port_binding=" + bound.map(port => `'${port}'`).join(' ');

edits_test('each field of a PPPoE WAN changes its own option', { ...pppoe, pppServName: 'isp', mvid: 90 }, [
    [{ mtu: 1400 }, was_now('device.mtu', 1500, 1408)],
    [{ prio: 3 }, was_now('device.egress_qos_mapping', '0:5', '0:3')],
    [{ mvid: 101 }, was_now('device.mvid', 90, 101)],
    [{ vid: 110 }, [was_now('device.vid', 100, 110), was_now('device.name', 'pon.100', 'pon.110'),
        was_now('device.lkname', '1_INTERNET_R_VID_100', '1_INTERNET_R_VID_110'), was_now('wan.device', 'pon.100', 'pon.110')]],
    [{ service: 6 }, [was_now('device.service_mode', 1, 6),
        was_now('device.lkname', '1_INTERNET_R_VID_110', '1_VOIP_INTERNET_R_VID_110')]],
    [{ disableLanDhcp: true }, was_now('device.disableLanDhcp', 0, 1)],
    [{ bind: '10010000' }, [`-${ports(1, 1, 0, 0, 0, 0, 0, 0)}`, `+${ports(1, 0, 0, 1, 0, 0, 0, 0)}`]],
    [{ napt: false }, was_now('wan.napt', 1, 0)],
    [{ pppUser: 'bob' }, was_now('wan.username', 'alice@isp.example', 'bob')],
    [{ pppPwd: ' other "pass\' word\\ ' }, [["-wan.password='secret'"], ["+wan.password=' other \"pass'\\'' word\\ '"]]],
    [{ pppServName: 'isp2' }, was_now('wan.service', 'isp', 'isp2')],
    [{ pppDialMode: true }, ["+wan.demand='300'"]],
    [{ ipv6PrefixProxy: false }, ["+wan.delegate='0'"]],
    [{ iphostId: 2 }, ["+wan.iphostId='2'"]],
    [{ mtu: 1300 }, was_now('device.mtu', 1408, 1308)]
]);

edits_test('each field of a DHCP WAN changes its own option', dhcp, [
    [{ autoDns: false, priDns: '192.0.2.1' }, ["+wan.peerdns='0'", "+wan.dns='192.0.2.1'"]],
    [{ priDns: '192.0.2.2' }, was_now('wan.dns', '192.0.2.1', '192.0.2.2')],
    [{ secDns: '192.0.2.3' }, ["-wan.dns='192.0.2.2'", "+wan.dns='192.0.2.2' '192.0.2.3'"]],
    [{ autoDnsV6: false, priDnsV6: '2001:db8::1' }, ["+wan_v6.peerdns='0'", "+wan_v6.dns='2001:db8::1'"]],
    [{ secDnsV6: '2001:db8::2' }, ["-wan_v6.dns='2001:db8::1'", "+wan_v6.dns='2001:db8::1' '2001:db8::2'"]],
    [{ priDnsV6: '2001:db8::3' }, ["-wan_v6.dns='2001:db8::1' '2001:db8::2'", "+wan_v6.dns='2001:db8::3' '2001:db8::2'"]],
    [{ autoDns: true }, ["-wan.peerdns='0'", "-wan.dns='192.0.2.2' '192.0.2.3'"]],
    [{ vlanMode: false }, [["-device.type='8021q'", "-device.ifname='pon'", "-device.vid='200'"], was_now('device.name', 'pon.200', 'pon'),
        was_now('device.lkname', '1_TR069_R_VID_200', '1_TR069_R_VID_'), was_now('wan.device', 'pon.200', 'pon'),
        was_now('wan_v6.device', 'pon.200', 'pon')]]
]);

edits_test('each field of a static WAN changes its own option', static_wan, [
    [{ ip: '192.0.2.20' }, was_now('wan.ipaddr', '192.0.2.10', '192.0.2.20')],
    [{ mask: '255.255.255.128' }, was_now('wan.netmask', '255.255.255.0', '255.255.255.128')],
    [{ gateway: '192.0.2.100' }, was_now('wan.gateway', '192.0.2.1', '192.0.2.100')],
    [{ ipv6Addr: '2001:db8:3::20/64' }, was_now('wan.ip6addr', '2001:db8:3::10/64', '2001:db8:3::20/64')],
    [{ ipv6Gateway: '2001:db8:3::2' }, was_now('wan.ip6gw', '2001:db8:3::1', '2001:db8:3::2')],
    [{ ipv6Prefix: '2001:db8:400::/56' }, was_now('wan.ip6prefix', '2001:db8:300::/56', '2001:db8:400::/56')],
    [{ ipProtocol: 1 }, [was_now('device.IpProtocolType', 3, 1), ["+device.ipv6='0'", "-wan.ip6addr='2001:db8:3::20/64'",
        "-wan.ip6gw='2001:db8:3::2'", "-wan.ip6prefix='2001:db8:400::/56'", "-wan.peerdns='0'",
        "-wan.dns='192.0.2.53' '192.0.2.54' '2001:db8:3::53' '2001:db8:3::54'", "+wan.dns='192.0.2.53' '192.0.2.54'"]]]
]);

edits_test('an IPv6-only WAN gets its tunnel, and another end-point', { ...dhcp, ipProtocol: 2 }, [
    [{ ipv6DsLite: true, ipv6AddrDsLite: '2001:db8::aaaa' }, ["+dslite=interface", "+dslite.proto='dslite'",
        "+dslite.peeraddr='2001:db8::aaaa'", "+dslite.tunlink='wan_1_v6'", "+dslite.encaplimit='ignore'"].slice(1)],
    [{ ipv6AddrDsLite: 'aftr.example' }, was_now('dslite.peeraddr', '2001:db8::aaaa', 'aftr.example')]
]);

web_test('a bridged WAN that is made a routed one has sensible first values', {
    arrange: gateway => gateway.add(bridged)
}, async ({ bridge, gateway, user }) => {
    await edit(user, { wanMode: 1, ipProtocol: 3, pppUser: 'alice', pppPwd: 'secret' });
    const { args } = bridge.calls.find(call => call.method === 'modify');
    assert_complete(args);
    assert.deepEqual([args.ipMode, args.napt, args.autoDns, args.autoDnsV6, args.mtu, args.vid], [2, true, true, true, 1492, 400]);
    assert.ok((await gateway.stored(1)).includes("wan.proto='pppoe'"));
});

// What a change of one thing makes of others is the same with a way back as without.
for (const [what, wan, values] of [
    ['untagged', { ...pppoe, mvid: 90 }, { vlanMode: false }],
    ['one of both IP versions', { ...dhcp, ipProtocol: 2, ipv6DsLite: true, ipv6AddrDsLite: 'aftr.example' }, { ipProtocol: 3 }],
    ['a DHCP one', pppoe, { ipMode: 0 }],
    ['a PPPoE one', static_wan, { ipMode: 2, pppUser: 'alice', pppPwd: 'secret' }],
    ['a static one', dhcp, { ipMode: 1, ipProtocol: 1, ip: '192.0.2.10', mask: '255.255.255.0', priDns: '192.0.2.1' }],
    ['one of another service', pppoe, { service: 2 }]
])
    web_test(`a WAN that is made ${what} with a way back is as it is without`, { arrange: gateway => gateway.add(wan) }, async ({ gateway, user }) => {
        const before = await gateway.stored(1);
        await edit(user, { ...values, wayBack: true });
        const tried = await gateway.stored(1);
        assert.notDeepEqual(tried, before);
        await user.press_button('Take back', '#korvel-trial');
        await user.wait('the end of the trial', () => !document.querySelector('#korvel-trial').offsetParent);
        assert.deepEqual(await gateway.stored(1), before);
        await edit(user, values);
        assert.deepEqual(tried, await gateway.stored(1));
    });

web_test('a routed WAN may get the VLAN of another one with a way back too', {
    arrange: async gateway => {
        await gateway.add(pppoe);
        await gateway.add(dhcp);
    }
}, async ({ gateway, user }) => {
    await edit(user, { vid: 200, wayBack: true });
    assert.ok((await gateway.stored(1)).includes("device.vid='200'"));
});

web_test('a bridged WAN that is made a routed one with a way back is as it is without', {
    arrange: gateway => gateway.add(bridged)
}, async ({ gateway, user }) => {
    const values = { wanMode: 1, ipProtocol: 3, pppUser: 'alice', pppPwd: 'secret', service: 1 };
    const before = await gateway.stored(1);
    await edit(user, { ...values, wayBack: true });
    const tried = await gateway.stored(1);
    await user.press_button('Take back', '#korvel-trial');
    await user.wait('the end of the trial', () => !document.querySelector('#korvel-trial').offsetParent);
    assert.deepEqual(await gateway.stored(1), before);
    await edit(user, values);
    assert.deepEqual(await gateway.stored(1), tried);
    await edit(user, { wanMode: 0, service: 3, bind: '00010000', wayBack: true });
    const bridged_again = await gateway.stored(1);
    assert.ok(bridged_again.includes("device.wanMode='0'") && !bridged_again.some(line => line.startsWith('wan.')), bridged_again.join('\n'));
});

web_test('a WAN saved as it is sends nothing', { arrange: gateway => gateway.add(pppoe) }, async ({ bridge, user }) => {
    await user.press_button('Edit 1_INTERNET_R_VID_100');
    await user.dialogue();
    await user.press_button('Save', '.modal');
    await user.dialogue_closed();
    await user.wait_for_text('#korvel-message', 'Nothing was changed.');
    assert.deepEqual(bridge.calls.filter(call => call.object === 'korvel'), []);
});

web_test('a field that was changed and is hidden again loses nothing', { arrange: gateway => gateway.add(static_wan) }, async ({ gateway, user }) => {
    const before = await gateway.stored(1);
    await user.press_button('Edit 1_INTERNET_R_VID_300');
    await user.dialogue();
    await user.set('ipMode', 2);
    await user.fill({ pppUser: 'nobody', ipMode: 1, mtu: 1450 });
    await user.press_button('Save', '.modal');
    await user.dialogue_closed();
    assert.deepEqual(difference(before, await gateway.stored(1)), was_now('device.mtu', 1500, 1450));
});

web_test('a static WAN whose link is down keeps its addresses', {
    arrange: async gateway => {
        writeFileSync('/gateway/netd/wan_1', 'json {"up":false}');
        await gateway.add(static_wan);
        await gateway.settle();
    }
}, async ({ gateway, user }) => {
    assert.match((await user.rows())[0][4], /^no address/);
    const before = await gateway.stored(1);
    await edit(user, { prio: 1 });
    assert.deepEqual(difference(before, await gateway.stored(1)), ["+device.egress_qos_mapping='0:1'"]);
});

web_test('name servers that a link has learnt do not become configuration', {
    arrange: async gateway => {
        await gateway.add({ ...pppoe, autoDns: false, priDns: '192.0.2.1' });
        await gateway.settle();
    }
}, async ({ gateway, user }) => {
    await user.wait_for_text('#korvel-wans', 'IPv6: up');
    const before = await gateway.stored(1);
    await edit(user, { prio: 1 });
    assert.deepEqual(difference(before, await gateway.stored(1)), was_now('device.egress_qos_mapping', '0:5', '0:1'));
});

web_test('a service name that queries hide is kept', {
    arrange: async gateway => {
        await gateway.add({ ...pppoe, pppServName: 'secret isp "x" \\' });
        await run('sh', ['-c', 'uci set custom.gpon=gpon; uci set custom.gpon.ppp_service_name_hidden=1; uci commit custom']);
    }
}, async ({ gateway, user }) => {
    const before = await gateway.stored(1);
    await edit(user, { prio: 1 });
    const after = await gateway.stored(1);
    await edit(user, { prio: 2, wayBack: true });
    const tried = await gateway.stored(1);
    await run('sh', ['-c', 'uci delete custom.gpon.ppp_service_name_hidden; uci commit custom']);
    assert.deepEqual(difference(before, after), was_now('device.egress_qos_mapping', '0:5', '0:1'));
    assert.deepEqual(difference(after, tried), was_now('device.egress_qos_mapping', '0:1', '0:2'));
});

web_test('the password is fetched only to be sent back, and kept', { arrange: gateway => gateway.add(pppoe) }, async ({ bridge, gateway, user }) => {
    await user.press_button('Edit 1_INTERNET_R_VID_100');
    await user.dialogue();
    assert.equal(await user.page.$eval('#korvel-pppPwd', input => input.value + '|' + input.placeholder + '|' + input.type), '|unchanged|password');
    await user.set('mtu', 1480);
    assert.ok(!JSON.stringify(bridge.calls).includes('secret'), 'not sent for opening the dialogue');
    await user.press_button('Save', '.modal');
    await user.dialogue_closed();
    assert.ok((await gateway.stored(1)).includes("wan.password='secret'"));
    assert.deepEqual(bridge.calls.filter(call => call.object === 'korvel').map(call => call.method), ['get', 'modify']);
});

web_test('what somebody else has changed meanwhile stays', { arrange: gateway => gateway.add(pppoe) }, async ({ gateway, user }) => {
    await user.press_button('Edit 1_INTERNET_R_VID_100');
    await user.dialogue();
    await gateway.call('modify', { wanId: 1, ...pppoe, prio: 7 });
    await user.set('mtu', 1480);
    await user.press_button('Save', '.modal');
    await user.dialogue_closed();
    const stored = await gateway.stored(1);
    assert.ok(stored.includes("device.mtu='1488'") && stored.includes("device.egress_qos_mapping='0:7'"), stored.join('\n'));
});

web_test('a WAN that was deleted meanwhile is not made anew', { arrange: gateway => gateway.add(pppoe) }, async ({ gateway, user }) => {
    await user.press_button('Edit 1_INTERNET_R_VID_100');
    await user.dialogue();
    await gateway.call('del', { wanId: 1 });
    await user.set('mtu', 1480);
    await user.press_button('Save', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'The connection is gone.');
    assert.deepEqual(await gateway.all(), []);
});

web_test('a change can wait, and is applied then', { arrange: gateway => gateway.add(pppoe) }, async ({ bridge, gateway, user }) => {
    await edit(user, { mtu: 1480, wait: 2 });
    await user.wait_for_text('#korvel-message', 'The change of 1_INTERNET_R_VID_100 will be applied in 2 seconds.');
    const { args } = bridge.calls.find(call => call.method === 'modify');
    assert.equal(args.wait, 2);
    assert_complete(args, ['pppPwd']);
    assert.ok(!JSON.stringify(bridge.calls).includes('secret'), 'a change that waits keeps the password by itself');
    await until('the change', async () => (await gateway.stored(1)).includes("device.mtu='1488'"));
    assert.ok((await gateway.stored(1)).includes("wan.password='secret'"));
});

web_test('a modification that says OK and failed is told as the failure it is', {
    arrange: gateway => gateway.add(dhcp),
    settings: bridge => (bridge.intercept = bus_replies({
        'korvel modify': () => ({ status: 0, info: 'korvel modify OK.' }),
        'korvel.state pending': () => ({ pending: [] }),
        'korvel.state last': () => ({ last: [{ action: 'failed', wanId: 1, wanName: '1_TR069_R_VID_200', when: '2026-11-22T05:02:00Z',
            result: 'it cannot be parsed', file: '/etc/config/firewall' }] })
    }))
}, async ({ user }) => {
    await user.press_button('Edit 1_TR069_R_VID_200');
    await user.dialogue();
    await user.set('mtu', 1480);
    await user.press_button('Save', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'Nothing was changed: it cannot be parsed, /etc/config/firewall');
    await user.picture('modify-failed', false);
});

web_test('who edits the WAN that the page came through is warned', { arrange: gateway => gateway.add(static_wan), opens: false }, async ({ gateway, user }) => {
    await gateway.settle();
    await uci('set', 'network.wan_1.ipaddr=127.0.0.1');
    await uci('commit', 'network');
    writeFileSync('/gateway/netd/wan_1', 'json {"up":true,"ipv4-address":[{"address":"127.0.0.1","mask":8}]}');
    await user.open();
    await user.press_button('Edit 1_INTERNET_R_VID_300');
    await user.wait_for_text('.modal', 'You are connected through this connection.');
    await user.picture('own-session', false);
});
