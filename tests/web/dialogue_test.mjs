// Adding and deleting, what the dialogues say while one types, and how they are used without a mouse.
import assert from 'node:assert/strict';
import { bridged, bus_replies, dhcp, pppoe, static_wan, web_test } from './fixture.mjs';
import { assert_complete } from './edit_test.mjs';

async function add(user, values) {
    await user.press_button('Add connection');
    await user.dialogue();
    await user.fill(values);
    await user.press_button('Add', '.modal');
}

// Adds a WAN in the dialogue, and the same by a request; both have to be the same configuration.
function add_test(kind, values, request, shown) {
    web_test(`a ${kind} WAN is added as by a request on the bus`, {}, async ({ bridge, gateway, user }) => {
        await user.press_button('Add connection');
        await user.dialogue();
        await user.fill(values);
        await user.picture(`add-${kind.replaceAll(' ', '-')}`, false);
        assert.deepEqual((await user.shown_fields()).filter(name => shown.includes(name)), shown);
        await user.press_button('Add', '.modal');
        await user.dialogue_closed();
        await user.wait_for_text('#korvel-message', 'The connection was added.');
        await user.wait_for_rows(1);
        assert_complete(bridge.calls.find(call => call.method === 'add').args);

        const made = await gateway.stored(1);
        await gateway.call('del', { wanId: 1 });
        await gateway.add(request);
        const [{ wanId, mac }] = await gateway.all();
        const wanted = (await gateway.stored(wanId)).map(line => line.replace(`lkname='${wanId}_`, "lkname='1_")
            .replace(`='wan_${wanId}`, "='wan_1").replace(mac, '00:11:22:33:44:56'));
        assert.deepEqual(made, wanted);
    });
}

add_test('PPPoE', { vid: 100, prio: 5, pppUser: 'alice@isp.example', pppPwd: 'secret', bind: '11000000' }, pppoe,
    ['ipMode', 'pppUser', 'pppPwd']);
add_test('DHCP', { ipMode: 0, vid: 200, service: 2 }, dhcp, ['ipMode', 'vid', 'autoDns', 'service']);
add_test('static', {
    ipMode: 1, vid: 300, ip: '192.0.2.10', mask: '255.255.255.0', gateway: '192.0.2.1', priDns: '192.0.2.53', secDns: '192.0.2.54',
    ipv6Addr: '2001:db8:3::10/64', ipv6Gateway: '2001:db8:3::1', ipv6Prefix: '2001:db8:300::/56', priDnsV6: '2001:db8:3::53',
    secDnsV6: '2001:db8:3::54', bind: '00001000'
}, static_wan, ['ip', 'mask', 'gateway', 'ipv6Addr']);
add_test('bridged', { wanMode: 0, ipProtocol: 1, vid: 400, mvid: 401, service: 3, disableLanDhcp: true, bind: '00010000' }, bridged,
    ['wanMode', 'mvid', 'bind']);
add_test('DS-Lite', { ipProtocol: 2, ipMode: 0, vid: 500, ipv6DsLite: true, ipv6AddrDsLite: 'aftr.example' },
    { ...dhcp, ipProtocol: 2, vid: 500, service: 1, ipv6DsLite: true, ipv6AddrDsLite: 'aftr.example', napt: false }, ['ipv6DsLite', 'ipv6AddrDsLite']);
add_test('untagged', { vlanMode: false, ipMode: 0, ipProtocol: 1 }, { ...dhcp, vlanMode: false, vid: 0, ipProtocol: 1, service: 1 }, ['vlanMode', 'mtu']);

web_test('only the fields that count for the choices are shown', {}, async ({ user }) => {
    await user.press_button('Add connection');
    await user.dialogue();
    const general = ['wanMode', 'ipProtocol', 'vlanMode', 'mtu', 'service', 'disableLanDhcp'];
    const shown = async choices => {
        await user.fill(choices);
        return new Set(await user.shown_fields());
    };
    const set = (...names) => new Set([...general, ...names]);

    assert.deepEqual(await shown({ wanMode: 0, vlanMode: false }), set('bind'));
    assert.deepEqual(await shown({ service: 2 }), set());
    assert.deepEqual(await shown({ wanMode: 1, ipProtocol: 1, ipMode: 0 }), set('ipMode', 'napt', 'autoDns', 'iphostId'));
    assert.deepEqual(await shown({ autoDns: false }), set('ipMode', 'napt', 'autoDns', 'priDns', 'secDns', 'iphostId'));
    assert.deepEqual(await shown({ ipMode: 1 }), set('ipMode', 'napt', 'priDns', 'secDns', 'ip', 'mask', 'gateway', 'iphostId'));
    assert.deepEqual(await shown({ ipProtocol: 2 }), set('ipMode', 'priDnsV6', 'secDnsV6', 'ipv6PrefixProxy', 'ipv6Addr', 'ipv6Gateway',
        'ipv6Prefix', 'ipv6DsLite'));
    assert.deepEqual(await shown({ ipMode: 2, ipv6DsLite: true }), set('ipMode', 'autoDnsV6', 'ipv6PrefixProxy', 'ipv6DsLite', 'ipv6AddrDsLite',
        'pppUser', 'pppPwd', 'pppServName', 'pppDialMode'));
    assert.deepEqual(await shown({ vlanMode: true, wanMode: 0 }), set('vid', 'mvid', 'prio'));
    const tabs = await user.page.$$eval('[role=tab]', links => links.filter(link => link.offsetParent).map(link => link.textContent));
    assert.deepEqual(tabs, ['General', 'Ports and services']);
});

web_test('the MTU follows the addresses until it was set by hand', {}, async ({ user }) => {
    const mtu = () => user.page.$eval('#korvel-mtu', input => input.value);
    await user.press_button('Add connection');
    await user.dialogue();
    assert.equal(await mtu(), '1492');
    await user.set('ipMode', 0);
    assert.equal(await mtu(), '1500');
    await user.set('mtu', 1400);
    await user.set('ipMode', 2);
    assert.equal(await mtu(), '1400');
});

web_test('each field says while one types what would be right', {}, async ({ user }) => {
    await user.press_button('Add connection');
    await user.dialogue();
    await user.fill({ ipMode: 1 });
    const long = 'é'.repeat(33);
    const cases = [
        ['mtu', '649', 'A whole number from 650 to 1500.'], ['mtu', '1501', 'A whole number from 650 to 1500.'], ['mtu', '650', ''], ['mtu', '1500', ''],
        ['mtu', '01400', 'A whole number'], ['mtu', '1400.5', 'A whole number'], ['mtu', '', 'A whole number'], ['mtu', '1e3', 'A whole number'],
        ['mtu', '66036', 'A whole number'], ['mtu', '1400', ''],
        ['vid', '4096', 'A whole number from 0 to 4095.'], ['vid', '-1', 'A whole number'], ['vid', '4095', ''], ['vid', '7', ''],
        ['mvid', '4096', 'A whole number from 0 to 4095.'], ['mvid', '7', 'Another VLAN'], ['mvid', '0', ''],
        ['ip', '192.0.2.256', 'An IPv4 address'], ['ip', '192.0.2', 'An IPv4 address'], ['ip', '192.0.2.01', 'An IPv4 address'], ['ip', '192.0.2.10', ''],
        ['ip', '192.0.2.1/24', 'An IPv4 address'], ['ip', ' 192.0.2.10', ''],
        ['mask', '255.0.255.0', 'A network mask'], ['mask', '0.0.0.0', 'A network mask'], ['mask', '24', 'A network mask'], ['mask', '255.255.255.255', ''],
        ['mask', '255.255.255.0', ''],
        ['gateway', '192.0.3.1', 'An address in the network of 192.0.2.10/255.255.255.0.'], ['gateway', 'x', 'An IPv4 address'], ['gateway', '192.0.2.1', ''],
        ['gateway', '', ''],
        ['priDns', '1.1.1', 'An IPv4 address'], ['priDns', '', ''], ['secDns', '1.1.1.1', ''],
        ['ipv6Addr', '2001:db8::1', 'An IPv6 address with its length'], ['ipv6Addr', '2001:db8::1/129', 'An IPv6 address with its length'],
        ['ipv6Addr', '2001:db8::1/64', ''], ['ipv6Addr', '1:2:3:4:5:6:7:8/0', ''], ['ipv6Addr', '1:2:3:4:5:6:7/0', 'An IPv6 address with its length'],
        ['ipv6Gateway', 'fe80::1%eth0', 'An IPv6 address'], ['ipv6Gateway', '1::2::3', 'An IPv6 address'], ['ipv6Gateway', '::ffff:192.0.2.1', ''],
        ['ipv6Gateway', '12345::', 'An IPv6 address'], ['ipv6Gateway', 'fe80::1', ''], ['ipv6Gateway', ':1:2:3:4:5:6:7', 'An IPv6 address'],
        ['ipv6Prefix', '2001:db8::', 'An IPv6 prefix with its length'], ['ipv6Prefix', '2001:db8::/56', ''],
        ['priDnsV6', '1.1.1.1', 'An IPv6 address'], ['secDnsV6', '2001:db8::53', '']
    ];
    const judge = async ([name, value, wanted]) => {
        await user.set(name, value);
        const said = await user.error(name);
        assert.ok(wanted === '' ? said === '' : said.startsWith(wanted), `${name} = "${value}": "${said}"`);
        assert.equal(await user.page.$eval(`#korvel-${name}`, node => node.getAttribute('aria-invalid')), String(wanted !== ''));
    };
    for (const each of cases)
        await judge(each);
    await user.picture('checks', false);
    await user.set('ipMode', 2);
    for (const each of [['pppUser', long, 'At most 64 bytes'], ['pppUser', 'x'.repeat(64), ''], ['pppUser', ' spaces ', ''], ['pppPwd', long, 'At most 64 bytes'],
        ['pppServName', 'x'.repeat(65), 'At most 64 bytes']])
        await judge(each);
});

web_test('what is missing is shown where it is, and nothing is sent', {}, async ({ bridge, user }) => {
    await add(user, { ipMode: 1 });
    await user.wait_for_text('.modal [role=alert]', 'VLAN: A whole number from 0 to 4095.');
    assert.equal(await user.page.evaluate(() => document.activeElement.id), 'korvel-vid');
    await user.set('vid', 100);
    await user.press_button('Add', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'Address: This is needed.');
    assert.equal(await user.page.evaluate(() => document.activeElement.id), 'korvel-ip');
    assert.deepEqual(bridge.calls.filter(call => call.method === 'add'), []);
    await user.picture('missing', false);
});

web_test('a conflict is told with the WAN that has the VLAN or the port', {
    arrange: async gateway => {
        await gateway.add(pppoe);
        await gateway.add(bridged);
    }
}, async ({ user }) => {
    await user.press_button('Add connection');
    await user.dialogue();
    await user.set('vid', 400);
    assert.equal(await user.error('vid'), '2_OTHER_B_VID_400 has VLAN 400, and a bridged connection shares its VLAN with no other.');
    await user.set('vid', 100);
    assert.equal(await user.error('vid'), '', 'routed connections may share one');
    await user.set('wanMode', 0);
    assert.equal(await user.error('vid'), '1_INTERNET_R_VID_100 has VLAN 100, and a bridged connection shares its VLAN with no other.');
    await user.set('mvid', 401);
    assert.equal(await user.error('mvid'), '2_OTHER_B_VID_400 has multicast VLAN 401.');
    await user.set('bind', '10010000');
    assert.equal(await user.error('bind'), 'LAN 1 is bound to 1_INTERNET_R_VID_100. LAN 4 is bound to 2_OTHER_B_VID_400.');
    await user.picture('conflicts', false);
    await user.set('bind', '00000000');
    await user.set('service', 3);
    assert.equal(await user.error('bind'), 'A bridged connection for other purposes needs a port.');
});

for (const [status, wanted] of [[-2, 'Its VLAN is in use.'], [-3, 'One of its ports is bound to another connection.'],
    [-4, 'A bridged connection for other purposes needs a port.'], [-1, 'The daemon refused the request. (korvel add ERR! Invalid MTU.)']])
    web_test(`the refusal ${status} is told in the dialogue in words`, {
        settings: bridge => (bridge.intercept = bus_replies({
            'korvel add': () => ({ status, info: status === -1 ? 'korvel add ERR! Invalid MTU.' : 'korvel modify ERR!' })
        }))
    }, async ({ user }) => {
        await add(user, { vid: 100 });
        await user.wait_for_text('.modal [role=alert]', wanted);
        await user.press_button('Dismiss', '.modal');
        await user.dialogue_closed();
    });

web_test('a VLAN that was taken while the dialogue was open is refused by the daemon and told', {}, async ({ gateway, user }) => {
    await user.press_button('Add connection');
    await user.dialogue();
    await gateway.add(bridged);
    await user.set('vid', 400);
    await user.press_button('Add', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'Its VLAN is in use. (korvel modify ERR!)');
    await user.picture('refused', false);
});

web_test('a change that is not answered in time may have been made, and is said to', {}, async ({ bridge, gateway, user }) => {
    let answer;
    bridge.intercept = (object, method) => (method === 'add' ? new Promise(resolve => (answer = resolve)) : undefined);
    await user.press_button('Add connection');
    await user.dialogue();
    await user.set('vid', 100);
    await user.page.evaluate(() => (L.env.rpctimeout = 1));
    await user.press_button('Add', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'The gateway did not answer in time. The change may have been made all the same');
    await user.page.evaluate(() => (L.env.rpctimeout = 20));
    await user.picture('add-timeout', false);
    answer(undefined);
    await user.press_button('Dismiss', '.modal');
    await user.wait_for_rows(1);
    assert.equal((await gateway.all()).length, 1);
});

for (const [how, signal] of [['stopped', 'SIGTERM'], ['killed', 'SIGKILL']])
    web_test(`a daemon ${how} before the change is sent is told in the dialogue`, {}, async ({ gateway, user }) => {
        await user.press_button('Add connection');
        await user.dialogue();
        await user.set('vid', 100);
        await gateway.stop(signal);
        await user.press_button('Add', '.modal');
        await user.wait_for_text('.modal [role=alert]', 'The daemon korvel is not running.');
        await gateway.start();
        await user.press_button('Add', '.modal');
        await user.dialogue_closed();
        await user.wait_for_rows(1);
    });

web_test('a session that ended while the dialogue was open is told, and the page does not break', {}, async ({ bridge, user }) => {
    await user.press_button('Add connection');
    await user.dialogue();
    await user.set('vid', 100);
    bridge.logout(user.session);
    await user.wait_for_text('.modal', 'Session expired');
});

web_test('a board that does not tell its ports leaves as many as the WANs have', {
    arrange: gateway => gateway.add(pppoe),
    settings: bridge => (bridge.intercept = object => (object === 'boardinfo' ? { error: { code: -32000, message: 'Object not found' } } : undefined))
}, async ({ user }) => {
    assert.equal((await user.rows())[0][2], 'Port 1, Port 2');
    await user.press_button('Add connection');
    await user.dialogue();
    assert.equal(await user.page.$$eval('#korvel-bind input', boxes => boxes.length), 8);
});

// ---- deleting ----

web_test('deleting asks first and says what goes', { arrange: gateway => gateway.add(pppoe) }, async ({ gateway, user }) => {
    await user.press_button('Delete 1_INTERNET_R_VID_100');
    await user.dialogue();
    const said = await user.text('.modal');
    assert.match(said, /1_INTERNET_R_VID_100 will be deleted\./);
    assert.match(said, /These ports are bound to nothing then: LAN 1, LAN 2\./);
    assert.equal(await user.page.evaluate(() => document.activeElement.textContent), 'Dismiss');
    await user.picture('delete', false);
    await user.press_button('Dismiss', '.modal');
    await user.dialogue_closed();
    assert.equal((await gateway.all()).length, 1);

    await user.press_button('Delete 1_INTERNET_R_VID_100');
    await user.press_button('Delete', '.modal');
    await user.dialogue_closed();
    await user.wait_for_text('#korvel-message', '1_INTERNET_R_VID_100 was deleted.');
    await user.wait_for_rows(0);
    assert.deepEqual(await gateway.all(), []);
});

web_test('a deletion that is refused is told in the dialogue', { arrange: gateway => gateway.add(pppoe) }, async ({ gateway, user }) => {
    await user.press_button('Delete 1_INTERNET_R_VID_100');
    await user.dialogue();
    await gateway.call('del', { wanId: 1 });
    await user.press_button('Delete', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'The daemon refused the request. (korvel del ERR!)');
});

// ---- the keyboard ----

const focused = user => user.page.evaluate(() => document.activeElement.getAttribute('aria-label') || document.activeElement.id ||
    document.activeElement.textContent);

async function press(user, ...keys) {
    for (const key of keys)
        await user.page.keyboard.press(key);
}

web_test('a WAN is added, edited and deleted with the keyboard alone', {}, async ({ gateway, user }) => {
    const { page } = user;
    await page.evaluate(() => document.querySelector('.cbi-button-add').focus());
    await press(user, 'Enter');
    await user.dialogue();
    assert.equal(await focused(user), 'korvel-wanMode');
    await press(user, 'Tab', 'Tab', 'ArrowDown');
    assert.equal(await page.$eval('#korvel-ipMode', node => node.value), '0', 'DHCP is below PPPoE');
    await press(user, 'Tab', 'Tab', '1', '2', '3');
    assert.equal(await focused(user), 'korvel-vid');

    // The tabs are one stop, and the arrow keys go along them.
    await press(user, 'Tab', 'Tab', 'Tab', 'Tab', 'Tab', 'Tab', 'Tab');
    assert.equal(await focused(user), 'korvel-tab-general', 'the focus stays in the dialogue');
    await press(user, 'ArrowLeft');
    assert.equal(await focused(user), 'korvel-tab-ports');
    await press(user, 'Home', 'ArrowRight');
    assert.equal(await focused(user), 'korvel-tab-ipv4');
    await press(user, 'End', 'Tab', 'Tab', 'Tab', 'Space');
    assert.equal(await page.$eval('#korvel-bind', node => node.querySelector('input').checked), true, 'LAN 1 is bound');
    for (let i = 0; i < 30 && (await focused(user)) !== 'Add'; i++)
        await press(user, 'Tab');
    await press(user, 'Enter');
    await user.dialogue_closed();
    await user.wait_for_rows(1);
    assert.equal((await gateway.all())[0].bind, '10000000');
    await user.wait('the focus back', () => document.activeElement === document.querySelector('.cbi-button-add'));

    await page.focus('.cbi-button-edit');
    await press(user, 'Enter');
    await user.dialogue();
    await press(user, 'Escape');
    await user.dialogue_closed();
    await user.wait('the focus back', () => document.activeElement === document.querySelector('.cbi-button-edit'));

    await press(user, 'Tab', 'Enter');
    await user.dialogue();
    await press(user, 'Tab', 'Enter');
    await user.dialogue_closed();
    await user.wait_for_rows(0);
    await user.wait('the focus on the heading', () => document.activeElement.id === 'korvel-heading');
});

web_test('the list may show that a WAN is gone before its deletion is answered', { arrange: gateway => gateway.add(pppoe) }, async ({ bridge, gateway, user }) => {
    bridge.intercept = async (object, method, { wanId }) => {
        if (object !== 'korvel' || method !== 'del')
            return undefined;
        await gateway.call('del', { wanId });
        await user.wait_for_rows(0);
        return { result: [0, { status: 0, info: 'OK' }] };
    };
    await user.press_button('Delete 1_INTERNET_R_VID_100');
    await user.dialogue();
    await user.press_button('Delete', '.modal');
    await user.dialogue_closed();
    assert.equal(await focused(user), 'korvel-heading');
});

web_test('every field and button has a name of its own', { arrange: gateway => gateway.add(pppoe) }, async ({ user }) => {
    await user.press_button('Edit 1_INTERNET_R_VID_100');
    await user.dialogue();
    const tree = await user.page.accessibility.snapshot({ interestingOnly: false });
    const named = [];
    const walk = node => {
        if (['textbox', 'checkbox', 'combobox', 'button', 'tab', 'dialog', 'group', 'tablist', 'tabpanel'].includes(node.role))
            named.push(`${node.role}: ${node.name ?? ''}`);
        (node.children ?? []).forEach(walk);
    };
    walk(tree);
    assert.ok(named.includes('dialog: Edit connection: 1_INTERNET_R_VID_100'), named.join('\n'));
    assert.ok(named.includes('textbox: VLAN') && named.includes('checkbox: Tagged') && named.includes('combobox: Mode'), named.join('\n'));
    assert.deepEqual(named.filter(text => text.endsWith(': ')), []);
});
