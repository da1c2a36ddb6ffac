// The list of WANs: what it shows, and that it stays usable whatever the gateway does.
import assert from 'node:assert/strict';
import { readFileSync, rmSync, writeFileSync } from 'node:fs';
import { bridged, bus_replies, dhcp, edit, pppoe, reader, static_wan, web_test } from './fixture.mjs';
import { phone } from './bench/browser.mjs';
import { bus_has, uci } from './bench/bus.mjs';
import { until } from './bench/gateway.mjs';

const add_all_kinds = async gateway => {
    for (const wan of [pppoe, dhcp, static_wan, bridged])
        await gateway.add(wan);
    await gateway.settle();
};

web_test('the overview shows what the daemon reports of each WAN', { arrange: add_all_kinds }, async ({ user }) => {
    await user.wait_for_text('#korvel-wans', 'IPv6: up');
    const [first, second, third, fourth] = await user.rows();

    assert.match(first[0], /^1_INTERNET_R_VID_100\npon\.100 · 00:11:22:33:44:56$/);
    assert.equal(first[1], 'Routed, PPPoE\nVLAN 100\nInternet');
    assert.equal(first[2], 'LAN 1, LAN 2');
    assert.match(first[3], /^IPv4: up\nIPv6: (up|down)\nfor \d+h \d+m \d+s$/);
    assert.match(first[4], /^100\.64\.2\.9 \/ 255\.255\.255\.255\nGateway: 100\.64\.0\.1\nDNS: 203\.0\.113\.1, 203\.0\.113\.2$/);
    assert.equal(second[1], 'Routed, DHCP\nVLAN 200\nRemote management');
    assert.equal(second[2], '–');
    assert.equal(third[1], 'Routed, Static\nVLAN 300\nInternet');
    assert.equal(third[2], 'Wi-Fi 2.4 GHz 1');
    assert.equal(third[4], '192.0.2.10 / 255.255.255.0\nGateway: 192.0.2.1\nDNS: 192.0.2.53, 192.0.2.54');
    assert.match(third[5], /^2001:db8:3::10\/64\nPrefix: 2001:db8:300::\/56\nGateway: 2001:db8:3::1\nDNS: 2001:db8:3::53, 2001:db8:3::54$/);
    assert.equal(fourth[1], 'Bridged\nVLAN 400\nOther');
    assert.equal(fourth[3], 'Bridged');
    assert.equal(fourth[4], '–');
    await user.picture('overview');
});

web_test('a gateway without WANs says so and offers to add one', {}, async ({ user }) => {
    assert.match(await user.text('#korvel-wans'), /There are no connections yet\./);
    assert.match(await user.text('.cbi-section-create'), /Add connection/);
    await user.picture('overview-empty');
});

web_test('one WAN makes one row', { arrange: gateway => gateway.add(dhcp) }, async ({ user }) => {
    await user.wait_for_rows(1);
    await user.picture('overview-one');
});

web_test('a link that is down is told in a word', {
    arrange: async gateway => {
        writeFileSync('/gateway/netd/wan_1', 'failing NO_CARRIER');
        await gateway.add({ ...pppoe, ipProtocol: 1 });
        await gateway.settle();
    }
}, async ({ user }) => {
    const [[, , , state, ipv4]] = await user.rows();
    assert.equal(state, 'IPv4: down');
    assert.equal(ipv4, 'no address');
});

// A configuration with many WANs, laid down in one piece; a few of them are routed.
function many_wans(count) {
    const ids = Array.from({ length: count }, (_, i) => i + 1);
    const sections = ids.map(id => {
        const routed = id % 50 === 0;
        const name = `${id}_OTHER_${routed ? 'R' : 'B'}_VID_${1000 + id}`;
        return `config device\n\toption type '8021q'\n\toption ifname 'pon'\n\toption vid '${1000 + id}'\n` +
            `\toption name 'pon.${1000 + id}'\n\toption mtu '1500'\n\toption wanMode '${routed ? 1 : 0}'\n` +
            `\toption IpProtocolType '1'\n\toption service_mode '3'\n\toption disableLanDhcp '0'\n` +
            `\toption macaddr '00:11:22:33:44:55'\n\toption lkname '${name}'\n` +
            (routed ? `config interface 'wan_${id}'\n\toption proto 'dhcp'\n\toption napt '1'\n` : '');
    });
    const list = ids.map(id => `\tlist wanList '${id}'\n`).join('');
    return `config korvel 'korvel'\n\toption maxWanId '${count}'\n\toption pon_adapt 'pon'\n${list}${sections.join('')}`;
}

async function lay_down_wans(gateway, count) {
    const path = '/etc/config/network';
    const before = readFileSync(path, 'utf8');
    await gateway.stop();
    writeFileSync(path, before.replace(/config korvel 'korvel'\n(\t.*\n)*/, '') + many_wans(count));
    await gateway.start();
    return () => writeFileSync(path, before);
}

for (const count of [32, 250])
    web_test(`${count} WANs are shown in the order of their identifiers`, { opens: false }, async ({ gateway, user }) => {
        const restore = await lay_down_wans(gateway, count);
        try {
            await user.open();
            await user.wait_for_rows(count);

            const names = (await user.rows()).map(cells => cells[0].split('_')[0]);
            assert.deepEqual(names, Array.from({ length: count }, (_, i) => String(i + 1)));
            await user.picture(`overview-${count}`, count < 100);
        } finally {
            await gateway.stop();
            restore();
        }
    });

web_test('polling keeps focus, scroll and rows while it updates texts', {
    opens: false
}, async ({ gateway, user }) => {
    const restore = await lay_down_wans(gateway, 12);
    await user.open();
    await user.wait_for_rows(12);
    const before = await user.page.evaluate(() => {
        window.row = [...document.querySelectorAll('.cbi-section-table-row')].find(row => row.textContent.includes('10_'));
        row.querySelector('.cbi-button-edit').focus();
        window.scrollTo(0, 150);
        return window.scrollY;
    });
    await gateway.add({ ...bridged, vid: 600, mvid: 0, service: 1, bind: '' });
    await user.wait_for_rows(13);

    const after = await user.page.evaluate(() => ({
        focused: document.activeElement.getAttribute('aria-label'),
        same: row.isConnected && row.contains(document.activeElement),
        scroll: window.scrollY
    }));
    await gateway.stop();
    restore();
    assert.deepEqual(after, { focused: 'Edit 10_OTHER_B_VID_1010', same: true, scroll: before });
    assert.ok(before > 0, 'the page is long enough to be scrolled');
});

web_test('the focus goes to the heading when the row that has it goes', {
    arrange: async gateway => {
        await gateway.add(dhcp);
        await gateway.add(bridged);
    }
}, async ({ gateway, user }) => {
    await user.page.focus('.cbi-button-remove');
    await gateway.call('del', { wanId: 1 });
    await user.wait_for_rows(1);
    assert.equal(await user.page.evaluate(() => document.activeElement.id), 'korvel-heading');
});

for (const [how, signal] of [['stopped', 'SIGTERM'], ['killed', 'SIGKILL']])
    web_test(`a daemon that is ${how} is told, what was seen stays, and its return is noticed`, {
        arrange: gateway => gateway.add(dhcp)
    }, async ({ gateway, user }) => {
        await gateway.stop(signal);
        await user.wait_for_text('#korvel-notice', 'The daemon korvel is not running. What is shown is');
        await user.wait_for_rows(1);
        await user.picture(`daemon-${how}`);
        await gateway.start();
        await user.wait('the notice gone', () => document.querySelector('#korvel-notice').textContent === '');
        await user.wait_for_rows(1);
    });

web_test('a page that opens while the daemon is down says so', { opens: false }, async ({ gateway, user }) => {
    await gateway.stop();
    await user.open();
    await user.wait_for_text('#korvel-notice', 'The daemon korvel is not running.');
    assert.match(await user.text('#korvel-wans'), /Nothing is known of the connections\./);
    await user.press_button('Add connection');
    await user.wait_for_text('#korvel-message', 'The daemon korvel is not running.');
    await user.picture('daemon-down');
    await gateway.start();
    await user.wait_for_text('#korvel-wans', 'There are no connections yet.');
});

web_test('a bus that does not answer in time is told, and the list comes when it does', {
    arrange: gateway => gateway.add(dhcp), opens: false
}, async ({ bridge, user }) => {
    let slow = true;
    let answer;
    bridge.env.rpctimeout = 1;
    bridge.intercept = (object, method) => (slow && method === 'wans' ? new Promise(resolve => (answer = resolve)) : undefined);
    await user.page.goto(`${user.address}/cgi-bin/luci/admin/network/korvel`);
    await user.wait_for_text('#korvel-wans', 'Collecting data…');
    await user.wait_for_text('#korvel-notice', 'The gateway did not answer in time.');
    await user.picture('bus-slow');
    slow = false;
    await user.page.evaluate(() => (L.env.rpctimeout = 20));
    answer(undefined);
    await user.wait_for_rows(1);
    await user.wait('the notice gone', () => document.querySelector('#korvel-notice').textContent === '');
});

web_test('an ended session is told by the framework and leaves the page whole', {
    arrange: gateway => gateway.add(dhcp)
}, async ({ bridge, user }) => {
    bridge.logout(user.session);
    await user.dialogue();
    assert.match(await user.text('.modal'), /Session expired/);
    await user.wait_for_text('#korvel-notice', 'The session has ended.');
    assert.equal((await user.rows()).length, 1);
    await user.picture('session-ended', false);
});

web_test('a gateway that cannot be reached is told', { arrange: gateway => gateway.add(dhcp) }, async ({ user }) => {
    await user.page.setOfflineMode(true);
    await user.wait_for_text('#korvel-notice', 'The gateway cannot be reached.');
    await user.page.setOfflineMode(false);
    await user.wait('the notice gone', () => document.querySelector('#korvel-notice').textContent === '');
});

// ---- rights ----

web_test('who may only read sees everything but secrets, and no button', {
    arrange: add_all_kinds, login: reader
}, async ({ bridge, user }) => {
    await user.wait_for_rows(4);
    assert.match(await user.text(), /You may look at them but not change them\./);
    assert.deepEqual(await user.page.$$eval('#view button', buttons => buttons.length), 0);
    assert.deepEqual(bridge.denied, []);
    assert.ok(!JSON.stringify(bridge.calls).includes(pppoe.pppPwd), 'no answer holds the password');
    await user.picture('read-only');
});

web_test('who has no right sees no entry and no page', { login: { read: ['unauthenticated'] }, opens: false }, async ({ user }) => {
    const reply = await user.page.goto(`${user.address}/cgi-bin/luci/admin/network/korvel`);
    assert.equal(reply.status(), 403);
    assert.doesNotMatch(await user.text(), /WAN Connections/);
});

web_test('no password is sent to the page of one who may write either', { arrange: add_all_kinds }, async ({ bridge, user }) => {
    await user.wait_for_rows(4);
    const asked = bridge.calls.filter(call => call.object === 'luci.korvel').length;
    await until('one more polling', () => bridge.calls.filter(call => call.object === 'luci.korvel').length > asked + 1);
    assert.ok(!JSON.stringify(bridge.calls).includes(pppoe.pppPwd), 'no answer holds the password');
    assert.doesNotMatch(await user.page.content(), new RegExp(pppoe.pppPwd));
});

const without_script = object => (object === 'luci.korvel' ? { error: { code: -32000, message: 'Object not found' } } : undefined);

web_test('where the script is missing, who may write sees the list all the same', {
    arrange: gateway => gateway.add(pppoe), settings: bridge => (bridge.intercept = without_script)
}, async ({ user }) => {
    await user.wait_for_rows(1);
});

web_test('where the script is missing, who may only read is told', {
    login: reader, settings: bridge => (bridge.intercept = without_script)
}, async ({ bridge, user }) => {
    await user.wait_for_text('#korvel-notice', 'the gateway lacks luci.korvel');
    assert.deepEqual(bridge.denied, []);
});

// ---- changes that wait, and what became of the last ones ----

const waiting = {
    pending: [{ wanId: 1, wanName: '1_TR069_R_VID_200', seconds: 42, asked: '2026-11-22T06:00:00Z', changes: ['mtu', 'prio'] }]
};
const last = {
    last: [
        { action: 'created', wanId: 1, wanName: '1_TR069_R_VID_200', when: '2026-11-22T05:00:00Z', result: 'OK' },
        { action: 'refused', wanId: 2, wanName: '2_OTHER_B_VID_400', when: '2026-11-22T05:01:00Z', result: 'the VLAN is taken',
            conflict: 'vlan', other: 1 },
        { action: 'failed', wanId: 2, wanName: '2_OTHER_B_VID_400', when: '2026-11-22T05:02:00Z', result: 'it cannot be parsed',
            file: '/etc/config/firewall' }
    ]
};

web_test('waiting changes are shown with their seconds and can be taken back', {
    arrange: async gateway => {
        await gateway.add(dhcp);
        await gateway.add(bridged);
    },
    settings: bridge => {
        bridge.taken_back = [];
        bridge.intercept = bus_replies({
            'korvel.state pending': () => (bridge.taken_back.length ? { pending: [] } : waiting),
            'korvel.state last': () => last,
            'korvel.state cancel': args => {
                bridge.taken_back.push(args);
                return { status: 0, info: 'korvel cancel OK.' };
            }
        });
    }
}, async ({ bridge, user }) => {
    await user.wait_for_text('#korvel-waiting', '42 seconds');
    assert.deepEqual(await user.rows('#korvel-waiting'), [['1_TR069_R_VID_200', '42 seconds', 'MTU, Priority']]);
    const done = (await user.rows('#korvel-last')).map(cells => cells.slice(0, 2));
    assert.deepEqual(done, [
        ['2_OTHER_B_VID_400', 'failed\nit cannot be parsed: /etc/config/firewall'],
        ['2_OTHER_B_VID_400', 'refused\nthe VLAN is taken\nin the way: 1_TR069_R_VID_200'],
        ['1_TR069_R_VID_200', 'added']
    ]);
    await user.picture('waiting-changes');

    await user.press_button('Take back 1_TR069_R_VID_200');
    await user.wait_for_text('#korvel-message', 'The change of 1_TR069_R_VID_200 was taken back.');
    assert.deepEqual(bridge.taken_back, [{ wanId: 1 }]);
    await user.wait('no waiting changes', () => document.querySelector('#korvel-waiting').closest('.cbi-section').classList.contains('hidden'));
});

web_test('a change that waits in the daemon is shown and taken back', {
    arrange: gateway => gateway.add(dhcp)
}, async ({ gateway, user, t }) => {
    if (!(await bus_has('korvel.state')))
        return t.skip('this daemon has no korvel.state');
    const before = await gateway.stored(1);
    await edit(user, { mtu: 1400, wait: 600 });
    await user.wait_for_text('#korvel-waiting', 'MTU');
    await user.press_button('Edit 1_TR069_R_VID_200');
    await user.wait_for_text('.modal', 'A change of this connection waits:');
    await user.press_button('Dismiss', '.modal');
    await user.press_button('Take back 1_TR069_R_VID_200');
    await user.wait_for_text('#korvel-message', 'The change of 1_TR069_R_VID_200 was taken back.');
    await user.wait_for_text('#korvel-last', 'taken back');
    assert.deepEqual(await gateway.stored(1), before);
});

web_test('a change that is just being applied is told as such and cannot be taken back', {
    arrange: gateway => gateway.add(dhcp),
    settings: bridge => (bridge.intercept = bus_replies({
        'korvel.state pending': () => ({ pending: [{ ...waiting.pending[0], seconds: 0, applying: true }, ...(bridge.more ?? [])] })
    }))
}, async ({ bridge, user }) => {
    await user.wait_for_text('#korvel-waiting', 'is being applied');
    assert.deepEqual(await user.rows('#korvel-waiting'), [['1_TR069_R_VID_200', 'is being applied', 'MTU, Priority']]);
    const shown_buttons = () => user.page.$$eval('#korvel-waiting button', buttons => buttons.filter(button => button.offsetParent).length);
    assert.equal(await shown_buttons(), 0);
    await user.picture('applying');
    await user.press_button('Edit 1_TR069_R_VID_200');
    await user.wait_for_text('.modal', 'A change of this connection is being applied: MTU, Priority. Save when it is done.');
    await user.press_button('Dismiss', '.modal');

    bridge.more = waiting.pending; // another one of the same WAN waits meanwhile
    await user.wait_for_text('#korvel-waiting', '42 seconds');
    assert.deepEqual((await user.rows('#korvel-waiting')).map(cells => cells[1]), ['is being applied', '42 seconds']);
    assert.equal(await shown_buttons(), 1);
});

web_test('a change is told as being applied while the daemon does', { arrange: gateway => gateway.add(dhcp) }, async ({ gateway, user }) => {
    // Until the file is there, the network's reload does not return.
    const script = readFileSync('/etc/init.d/network', 'utf8');
    writeFileSync('/etc/init.d/network', '#!/bin/sh\nwhile [ ! -e /gateway/go-on ]; do sleep 0.1; done\n');
    try {
        await edit(user, { mtu: 1400, wait: 1 });
        await user.wait_for_text('#korvel-waiting', 'is being applied');
        assert.equal(await user.page.$$eval('#korvel-waiting button', buttons => buttons.filter(button => button.offsetParent).length), 0);
    } finally {
        writeFileSync('/gateway/go-on', '');
        await user.wait('no waiting changes', () => document.querySelector('#korvel-waiting').closest('.cbi-section').classList.contains('hidden'));
        writeFileSync('/etc/init.d/network', script);
        rmSync('/gateway/go-on');
    }
    await user.wait_for_text('#korvel-last', 'changed');
    assert.ok((await gateway.stored(1)).includes("device.mtu='1400'"));
});

web_test('the management device is named as what it is and has no buttons', {
    arrange: async gateway => {
        assert.equal((await gateway.call('addDev')).status, 0);
        await gateway.add(bridged);
    }
}, async ({ gateway, user }) => {
    await user.wait_for_rows(2);
    const [device] = await gateway.all();
    const [first, second] = await user.rows();
    assert.equal(first[0], `1_OTHER_B_TMP\npon.4094 · ${device.mac}`);
    assert.deepEqual(first.slice(1), ['Management device\nVLAN 4094\nThe provider’s: not changed here.', '–', '–', '–', '–']);
    assert.equal(second[1], 'Bridged\nVLAN 400\nOther');
    const shown_buttons = await user.page.$$eval('#korvel-wans tr', rows => rows.slice(1).map(row =>
        [...row.querySelectorAll('button')].filter(button => button.offsetParent).map(button => button.getAttribute('aria-label'))));
    assert.deepEqual(shown_buttons, [[], ['Edit 2_OTHER_B_VID_400', 'Delete 2_OTHER_B_VID_400']]);
    await user.picture('management-device');
    await user.press_button('Edit 2_OTHER_B_VID_400');
    await user.dialogue();
    await user.set('vid', 4094);
    assert.match(await user.error('vid'), /^1_OTHER_B_TMP has VLAN 4094/);
});

web_test('a WAN of the management device’s VLAN that is none has its buttons', {
    arrange: gateway => gateway.add({ ...bridged, vid: 4094 })
}, async ({ user }) => {
    assert.equal((await user.rows())[0][1], 'Bridged\nVLAN 4094\nOther');
    await user.press_button('Edit 1_OTHER_B_VID_4094');
    await user.dialogue();
});

web_test('who may only read sees waiting changes without a button', {
    login: reader, settings: bridge => (bridge.intercept = bus_replies({
        'korvel.state pending': () => waiting, 'korvel.state last': () => last
    }))
}, async ({ user }) => {
    await user.wait_for_text('#korvel-waiting', '42 seconds');
    assert.equal(await user.page.$$eval('#view button', buttons => buttons.length), 0);
});

web_test('a daemon without korvel.state is told of in a quiet sentence', {
    arrange: gateway => gateway.add(dhcp),
    settings: bridge => (bridge.intercept = object =>
        (object === 'korvel.state' ? { error: { code: -32000, message: 'Object not found' } } : undefined))
}, async ({ user }) => {
    await user.wait_for_text('#korvel-untold:not(.hidden)', 'This daemon does not tell which changes wait');
    assert.equal(await user.text('#korvel-notice'), '');
});

// ---- texts, sizes and themes ----

const evil = '<img src=x onerror=hacked=1>';

web_test('texts that look like markup are shown as they are', {
    arrange: async gateway => {
        await gateway.add({ ...pppoe, ipProtocol: 1, autoDns: false, priDns: '<b>"&amp;\'', pppUser: evil, pppPwd: evil, pppServName: evil });
        await gateway.add(bridged);
        await gateway.stop();
        await uci('set', `network.@device[1].lkname=1_${evil}`);
        await uci('set', 'network.@device[1].macaddr=<i>&lt;</i>"\'\\');
        await uci('set', `network.@device[2].lkname=2_"pppPwd":"${'x'.repeat(10)}`);
        await uci('commit', 'network');
        await gateway.start();
        await gateway.settle();
    },
    settings: bridge => (bridge.intercept = bus_replies({
        'korvel.state pending': () => ({ pending: [{ ...waiting.pending[0], wanName: evil, changes: [evil] }] }),
        'korvel.state last': () => ({ last: [{ ...last.last[2], wanName: evil, action: evil, result: evil, file: evil, other: evil, when: evil }] })
    }))
}, async ({ user }) => {
    await user.wait_for_text('#korvel-waiting', evil);
    const [first, second] = await user.rows();
    assert.match(first[0], /^1_<img src=x onerror=hacked=1>\npon\.100 · <i>&lt;<\/i>"'\\$/);
    assert.match(second[0], /^2_"pppPwd":"xxxxxxxxxx/);
    assert.ok((await user.rows('#korvel-last'))[0].every(cell => cell.includes(evil)));

    await user.press_button(`Edit 1_${evil}`);
    await user.dialogue();
    assert.equal(await user.page.$eval('#korvel-pppUser', input => input.value), evil);
    await user.picture('hostile-texts', false);
    await user.press_button('Dismiss');
    await user.press_button(`Delete 1_${evil}`);
    await user.dialogue();
    assert.match(await user.text('.modal'), /1_<img src=x onerror=hacked=1> will be deleted/);
    assert.equal(await user.page.$$eval('img, b, i', nodes => nodes.length), 0);
    assert.equal(await user.page.evaluate(() => typeof hacked), 'undefined');
});

web_test('a refusal that looks like markup is shown as it is', {
    settings: bridge => (bridge.intercept = bus_replies({ 'korvel add': () => ({ status: -1, info: evil }) }))
}, async ({ user }) => {
    await user.press_button('Add connection');
    await user.dialogue();
    await user.fill({ vid: 100 });
    await user.press_button('Add', '.modal');
    await user.wait_for_text('.modal [role=alert]', evil);
    assert.equal(await user.page.$$eval('img', nodes => nodes.length), 0);
});

web_test('on a phone rows are cards with headings, and nothing is wider than the screen', {
    arrange: add_all_kinds, viewport: phone
}, async ({ user }) => {
    await user.wait_for_rows(4);
    const look = await user.page.evaluate(() => ({
        overflow: document.documentElement.scrollWidth > window.innerWidth,
        head: getComputedStyle(document.querySelector('.cbi-section-table-titles')).display,
        untitled: [...document.querySelectorAll('td:not(.cbi-section-actions)')].filter(cell => !cell.dataset.title).length
    }));
    assert.deepEqual(look, { overflow: false, head: 'none', untitled: 0 });
    await user.picture('phone');
    await user.press_button('Edit 1_INTERNET_R_VID_100');
    await user.dialogue();
    assert.equal(await user.page.evaluate(() => document.querySelector('#modal_overlay').scrollWidth > window.innerWidth), false);
    await user.picture('phone-dialogue', false);
});

web_test('the dark theme has the page in its colours', { arrange: add_all_kinds, query: '?dark' }, async ({ user }) => {
    await user.wait_for_rows(4);
    await user.picture('dark');
    await user.press_button('Edit 1_INTERNET_R_VID_100');
    await user.dialogue();
    await user.picture('dark-dialogue', false);
});

web_test('the page speaks the language of the translation', {
    arrange: add_all_kinds, settings: bridge => (bridge.language = 'de')
}, async ({ user }) => {
    await user.wait_for_rows(4);
    assert.match(await user.text('h2'), /^WAN-Verbindungen$/);
    await user.picture('german');
    await user.press_button('Verbindung hinzufügen');
    await user.dialogue();
    await user.picture('german-dialogue', false);
});
