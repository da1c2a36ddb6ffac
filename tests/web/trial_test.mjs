// Changes with a way back: taken back unless they are confirmed in time.
import assert from 'node:assert/strict';
import { chmodSync, existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { bridged, bus_replies, dhcp, pppoe, reader, static_wan, web_test } from './fixture.mjs';
import { run, uci } from './bench/bus.mjs';
import { until } from './bench/gateway.mjs';

const evil = '<img src=x onerror=hacked=1>';
const name = '1_INTERNET_R_VID_100';
const is_waiting = () => existsSync('/etc/korvel/try');
const has_mtu = async (gateway, mtu) => (await gateway.stored(1)).includes(`device.mtu='${mtu}'`);

async function open_editor(user, wan = name) {
    await user.press_button(`Edit ${wan}`);
    await user.dialogue();
}

// Saves the only WAN's change with a way back.
async function try_edit(user, values, seconds = 600, wan = name) {
    await open_editor(user, wan);
    await user.fill({ ...values, wayBack: true, waySeconds: seconds });
    await user.press_button('Save', '.modal');
    await user.dialogue_closed();
}

const banner_gone = user => user.wait('no banner', () => !document.querySelector('#korvel-trial').offsetParent);
const buttons_of_banner = user => user.page.$$eval('#korvel-trial button', buttons =>
    buttons.filter(button => button.offsetParent).map(button => button.textContent));
const is_chosen = user => user.page.$eval('#korvel-wayBack', box => box.checked);

// What is called in place of a program of the gateway, by the scripts that the bridge runs.
async function with_program(program, script, body) {
    const directory = mkdtempSync('/tmp/programs-');
    const path = process.env.PATH;
    writeFileSync(join(directory, program), `#!/bin/sh\nPATH=${path}\n${script}\n`);
    chmodSync(join(directory, program), 0o755);
    process.env.PATH = `${directory}:${path}`;
    try {
        await body(directory);
    } finally {
        process.env.PATH = path;
        rmSync(directory, { recursive: true });
    }
}

// ---- when it is offered ----

web_test('a way back is offered for a WAN that the session does not come through, and is not chosen', {
    arrange: gateway => gateway.add(pppoe)
}, async ({ bridge, gateway, user }) => {
    await open_editor(user);
    assert.equal(await is_chosen(user), false);
    assert.equal(await user.page.$eval('#korvel-waySeconds', input => input.offsetParent), null, 'no time without it');
    await user.set('mtu', 1400);
    await user.press_button('Save', '.modal');
    await user.dialogue_closed();
    assert.ok(await has_mtu(gateway, 1408));
    assert.equal(is_waiting(), false);
    assert.deepEqual(bridge.calls.filter(call => call.method === 'try_modify'), []);
    await user.press_button(`Delete ${name}`);
    await user.dialogue();
    assert.equal(await is_chosen(user), false);
    await user.press_button('Dismiss', '.modal');
    await user.press_button('Add connection');
    await user.dialogue();
    assert.equal(await user.page.$('#korvel-wayBack'), null, 'a new WAN carries nobody');
});

web_test('no way back is offered where korvelctl is not there', {
    arrange: gateway => gateway.add(pppoe),
    settings: bridge => (bridge.intercept = bus_replies({ 'luci.korvel trial': () => ({ offered: false, waits: false }) }))
}, async ({ user }) => {
    await open_editor(user);
    assert.equal(await user.page.$('#korvel-wayBack'), null);
    assert.equal(await user.page.$eval('#korvel-wait', input => input.offsetParent !== null), true);
});

web_test('no way back is offered by an older script, and the page works', {
    arrange: gateway => gateway.add(pppoe),
    settings: bridge => (bridge.intercept = (object, method) => (method === 'trial' ? { result: [3] } : undefined))
}, async ({ user }) => {
    await open_editor(user);
    assert.equal(await user.page.$('#korvel-wayBack'), null);
    assert.equal(await user.page.$eval('#korvel-trial', node => node.offsetParent), null);
});

// The address is written otherwise than a browser writes it.
const add_static = async gateway => {
    await gateway.add({ ...static_wan, ipv6Addr: '2001:DB8:3:0::10/64' });
    await gateway.settle();
};
const static_name = '1_INTERNET_R_VID_300';

for (const [version, host] of [['IPv4', '192.0.2.10'], ['IPv6', '[2001:db8:3::10]']])
    web_test(`a way back is chosen beforehand for the WAN whose ${version} address the page is at`, { arrange: add_static, host }, async ({ user }) => {
        await open_editor(user, static_name);
        assert.match(await user.text('.modal'), /You are connected through this connection\./);
        assert.equal(await is_chosen(user), true);
        assert.equal(await user.page.$eval('#korvel-waySeconds', input => input.value), '90');
        assert.equal(await user.page.$eval('#korvel-wait', input => input.offsetParent), null, 'it is made now');
        await user.picture(`own-session-${version.toLowerCase()}`, false);
        await user.press_button('Dismiss', '.modal');
        await user.press_button(`Delete ${static_name}`);
        await user.dialogue();
        assert.equal(await is_chosen(user), true);
        assert.match(await user.text('.modal'), /You are connected through this connection: you will lose the gateway\./);
        await user.picture(`own-session-delete-${version.toLowerCase()}`, false);
    });

web_test('the time of a way back is checked', { arrange: gateway => gateway.add(pppoe) }, async ({ bridge, user }) => {
    await open_editor(user);
    await user.fill({ mtu: 1400, wayBack: true });
    for (const [value, wanted] of [['4', 'A whole number from 5 to 86400.'], ['5', ''], ['86401', 'A whole number'], ['', 'A whole number'], ['1e2', 'A whole number']]) {
        await user.set('waySeconds', value);
        assert.ok((await user.error('waySeconds')).startsWith(wanted), value);
        assert.equal(await user.page.$eval('#korvel-waySeconds', node => node.getAttribute('aria-invalid')), String(wanted !== ''));
    }
    await user.press_button('Save', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'A whole number from 5 to 86400.');
    assert.equal(await user.page.evaluate(() => document.activeElement.id), 'korvel-waySeconds');
    await user.press_button('Dismiss', '.modal');
    await user.press_button(`Delete ${name}`);
    await user.dialogue();
    await user.fill({ wayBack: true, waySeconds: 1 });
    await user.press_button('Delete', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'A whole number from 5 to 86400.');
    assert.deepEqual(bridge.calls.filter(call => call.method.startsWith('try_')), []);
});

// ---- how it ends ----

web_test('a change on trial is shown with its seconds, also after a reload, and kept', {
    arrange: gateway => gateway.add(pppoe)
}, async ({ bridge, gateway, user }) => {
    await try_edit(user, { mtu: 1400 }, 300);
    await user.wait_for_text('#korvel-message', `${name} was changed on trial.`);
    await user.wait_for_text('#korvel-trial-what', `A change of ${name} is on trial.`);
    const { args } = bridge.calls.find(call => call.method === 'try_modify');
    assert.deepEqual(args, { seconds: 300, wanId: 1, mtu: 1400 });
    const seconds = async () => Number(/taken back in (\d+) seconds/.exec(await user.text('#korvel-trial-time'))[1]);
    const before = await seconds();
    assert.ok(before > 200 && before <= 300, `${before} seconds`);
    await user.wait('a second less', was => !document.querySelector('#korvel-trial-time').textContent.includes(` ${was} `), before);
    await user.picture('on-trial');
    await user.open();
    await user.wait_for_text('#korvel-trial-what', `A change of ${name} is on trial.`);
    assert.ok(await seconds() <= before + 1);
    assert.ok(is_waiting());

    await user.press_button('Keep');
    await user.wait_for_text('#korvel-message', 'The change stays.');
    await banner_gone(user);
    assert.equal(is_waiting(), false);
    assert.ok(await has_mtu(gateway, 1408));
});

web_test('a change on trial is taken back by the button', { arrange: gateway => gateway.add(pppoe) }, async ({ gateway, user }) => {
    const before = await gateway.stored(1);
    await try_edit(user, { mtu: 1400, pppPwd: 'other' });
    assert.ok((await gateway.stored(1)).includes("wan.password='other'"));
    await user.press_button('Take back', '#korvel-trial');
    await user.wait_for_text('#korvel-message', 'The change on trial was taken back.');
    await banner_gone(user);
    assert.deepEqual(await gateway.stored(1), before);
});

web_test('who cuts the own connection gets it back when the time is up', {
    arrange: add_static, host: '192.0.2.10', settings: bridge => (bridge.env.rpctimeout = 4)
}, async ({ gateway, user }) => {
    const before = await gateway.stored(1);
    await open_editor(user, static_name);
    await user.fill({ ip: '192.0.2.20', waySeconds: 20 });
    await user.press_button('Save', '.modal');
    await until('the change', async () => (await gateway.stored(1)).includes("wan.ipaddr='192.0.2.20'"));
    await user.wait('the gateway out of reach', () =>
        /cannot be reached|did not answer in time/.test(document.querySelector('#korvel-notice').textContent));
    await user.picture('own-connection-cut', false);
    await user.wait_for_text('#korvel-trial-what', `The change of ${static_name} was taken back.`);
    await user.wait('the notice gone', () => document.querySelector('#korvel-notice').textContent === '');
    await user.dialogue_closed(); // whether it got its answer or not
    await user.picture('taken-back');
    assert.deepEqual(await gateway.stored(1), before);
    assert.deepEqual(await buttons_of_banner(user), []);
});

web_test('the time goes by on the page while the gateway cannot be reached, and the change is kept behind it', {
    arrange: gateway => gateway.add(pppoe)
}, async ({ gateway, user }) => {
    await try_edit(user, { mtu: 1400 }, 300);
    await user.wait_for_text('#korvel-trial-time', 'It is taken back in');
    await user.page.setOfflineMode(true);
    await user.wait_for_text('#korvel-notice', 'The gateway cannot be reached.');
    const shown = await user.text('#korvel-trial-time');
    await user.wait('the time going by', was => document.querySelector('#korvel-trial-time').textContent !== was, shown);
    await user.press_button('Keep');
    await user.wait_for_text('#korvel-message', 'The gateway cannot be reached.');
    assert.ok(is_waiting());
    await user.page.setOfflineMode(false);
    await user.press_button('Keep');
    await user.wait_for_text('#korvel-message', 'The change stays.');
    assert.ok(await has_mtu(gateway, 1408));
});

web_test('a change that was kept elsewhere is told as kept, and one that ended unseen as it ended', {
    arrange: gateway => gateway.add(pppoe)
}, async ({ user }) => {
    await try_edit(user, { mtu: 1400 });
    await run('korvelctl', ['confirm']);
    await user.wait_for_text('#korvel-trial-what', `The change of ${name} was kept.`);
    await try_edit(user, { mtu: 1300 });
    await user.wait_for_text('#korvel-trial-what', `A change of ${name} is on trial.`);
    await run('korvelctl', ['take-back']);
    await user.open();
    await user.wait_for_text('#korvel-trial-what', `The change of ${name} was taken back.`);
    await uci('set', 'network.wan_1.metric=7'); // later changes make no difference to what was told
    await uci('commit', 'network');
    await user.open();
    await user.wait_for_text('#korvel-trial-what', `The change of ${name} was taken back.`);
});

web_test('a change that others have overwritten is told to be on trial no more', { arrange: gateway => gateway.add(pppoe) }, async ({ user }) => {
    await try_edit(user, { mtu: 1400 });
    await run('sh', ['-c', 'uci set network.wan_1.metric=7; uci commit network; korvelctl confirm']);
    await user.wait_for_text('#korvel-trial-what', `The change of ${name} is on trial no more; look whether it is there.`);
});

web_test('who keeps a change too late is told', { arrange: gateway => gateway.add(pppoe) }, async ({ bridge, user }) => {
    await try_edit(user, { mtu: 1400 });
    await user.wait_for_text('#korvel-trial-time', 'It is taken back in');
    const shown = { offered: true, waits: true, seconds: 9, wanId: 1, made: { ok: true, result: 'changed', wanId: 1, wanName: name } };
    bridge.intercept = bus_replies({ 'luci.korvel trial': () => shown });
    await run('korvelctl', ['take-back']);
    await user.press_button('Keep');
    await user.wait_for_text('#korvel-message', 'No change is on trial any more.');
    bridge.intercept = null;
    await user.wait_for_text('#korvel-trial-what', 'was taken back.');
});

web_test('a change that is being taken back is told without buttons', {
    settings: bridge => (bridge.intercept = bus_replies({
        'luci.korvel trial': () => ({ offered: true, waits: false, undoing: true, wanId: 1, made: { ok: true, result: 'changed', wanId: 1, wanName: evil } })
    }))
}, async ({ user }) => {
    await user.wait_for_text('#korvel-trial-what', `The change of ${evil} is being taken back.`);
    assert.deepEqual(await buttons_of_banner(user), []);
});

web_test('a deletion is taken back, and another one kept', { arrange: gateway => gateway.add(pppoe) }, async ({ bridge, gateway, user }) => {
    const restore = await gateway.serve();
    try {
        const before = await gateway.stored(1);
        const delete_on_trial = async () => {
            await user.press_button(`Delete ${name}`);
            await user.dialogue();
            await user.fill({ wayBack: true, waySeconds: 300 });
            await user.press_button('Delete', '.modal');
            await user.dialogue_closed();
            await user.wait_for_text('#korvel-message', `${name} was deleted on trial.`);
            await user.wait_for_text('#korvel-trial-what', `The deletion of ${name} is on trial.`);
            await user.wait_for_rows(0);
        };
        await delete_on_trial();
        assert.deepEqual(await gateway.all(), []);
        await user.picture('deleted-on-trial');
        await user.press_button('Take back', '#korvel-trial');
        await user.wait_for_text('#korvel-message', 'The change on trial was taken back.');
        await banner_gone(user);
        await user.wait_for_rows(1);
        assert.deepEqual(await gateway.stored(1), before);

        await delete_on_trial();
        await user.press_button('Keep');
        await banner_gone(user);
        assert.deepEqual(await gateway.all(), []);
        assert.deepEqual(bridge.calls.filter(call => call.object === 'korvel'), []);
    } finally {
        await restore();
    }
});

// ---- refusals ----

web_test('what korvelctl refuses is told in the dialogue, and nothing is on trial', {
    arrange: async gateway => {
        await gateway.add(pppoe);
        await gateway.add(bridged);
    }
}, async ({ bridge, gateway, user }) => {
    const before = await gateway.stored(1);
    await open_editor(user);
    await user.fill({ mtu: 1500, wayBack: true });
    await user.press_button('Save', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'The change was refused. (an MTU of 1500 does not fit PPPoE; it has at most 1492');
    await user.picture('trial-refused', false);
    for (const [exit, wanted] of [[4, 'The connection is gone.'], [5, `Its VLAN is in use. (${evil})`],
        [6, `One of its ports is bound to another connection. (${evil})`], [9, 'The daemon korvel is not running.'], [8, `The change was refused. (${evil})`],
        [10, 'The change may have been made all the same: then this page asks whether to keep it.']]) {
        bridge.intercept = bus_replies({ 'luci.korvel try_modify': () => ({ ok: false, exit, message: evil }) });
        await user.press_button('Save', '.modal');
        await user.wait_for_text('.modal [role=alert]', wanted);
    }
    bridge.intercept = (object, method) => (method === 'try_modify' ? { result: [9] } : undefined);
    await user.press_button('Save', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'The gateway lacks what a way back needs.');
    assert.equal(await user.page.$$eval('img', nodes => nodes.length), 0);
    assert.equal(is_waiting(), false);
    assert.deepEqual(await gateway.stored(1), before);
    await user.press_button('Dismiss', '.modal');
    assert.equal(await user.page.$eval('#korvel-trial', node => node.offsetParent), null);
});

web_test('a change whose answer is late is on trial all the same, and the page asks whether to keep it', {
    arrange: gateway => gateway.add(pppoe)
}, async ({ gateway, user }) => {
    await with_program('korvelctl', '[ "$1" != try ] || sleep 3\nexec korvelctl "$@"', async () => {
        await open_editor(user);
        await user.fill({ mtu: 1400, wayBack: true, waySeconds: 300 });
        await user.page.evaluate(() => (L.env.rpctimeout = 1));
        await user.press_button('Save', '.modal');
        await user.wait_for_text('.modal [role=alert]', 'then this page asks whether to keep it');
        await user.page.evaluate(() => (L.env.rpctimeout = 20));
        await user.dialogue_closed();
        await user.wait_for_text('#korvel-trial-what', `A change of ${name} is on trial.`);
        await user.press_button('Keep');
        await user.wait_for_text('#korvel-message', 'The change stays.');
    });
    assert.ok(await has_mtu(gateway, 1408));
});

web_test('a change that did not begin is not taken for the one before', { arrange: gateway => gateway.add(pppoe) }, async ({ bridge, user }) => {
    await try_edit(user, { mtu: 1400 });
    await run('korvelctl', ['take-back']);
    await user.wait_for_text('#korvel-trial-what', `The change of ${name} was taken back.`);
    bridge.intercept = (object, method) => (method === 'try_modify' ? { result: [7] } : undefined);
    await open_editor(user);
    await user.fill({ mtu: 1400, wayBack: true });
    await user.press_button('Save', '.modal');
    await user.wait_for_text('.modal [role=alert]', 'The change may have been made all the same');
    const asked = () => bridge.calls.filter(call => call.method === 'trial').length;
    const before = asked();
    await until('two more pollings', () => asked() > before + 1);
    await user.dialogue();
});

web_test('the change goes on when the script that makes it is ended', { arrange: gateway => gateway.add(pppoe), opens: false }, async ({ gateway }) => {
    const script = new URL('../../web/luci-app-korvel/root/usr/libexec/rpcd/luci.korvel', import.meta.url).pathname;
    await with_program('korvelctl', '[ "$1" != try ] || sleep 1\nexec korvelctl "$@"', async () => {
        const { status } = await run('timeout', ['--foreground', '-s', 'KILL', '0.5', 'sh', script, 'call', 'try_modify'], '{"seconds":300,"wanId":1,"mtu":1400}');
        assert.notEqual(status, 0, 'it was ended');
        await until('the change', () => has_mtu(gateway, 1408));
        await until('what is known of it', async () => {
            const trial = JSON.parse((await run('sh', [script, 'call', 'trial'])).output);
            return trial.waits && trial.wanId === 1 && trial.seconds > 200;
        });
    });
});

// What waits to take the change back has the services reload then, and they write files for others to read.
web_test('what takes a change back has nothing of the script', { arrange: gateway => gateway.add(pppoe) }, async ({ user }) => {
    await try_edit(user, { mtu: 1400 });
    const { output } = await run('sh', ['-c', 'for p in /proc/[0-9]*; do case $(cat $p/comm) in korvelctl) cat $p/status; ls -l $p/fd; esac; done']);
    assert.equal(/^Umask:\s+(\d+)$/m.exec(output)[1], process.umask().toString(8).padStart(4, '0'));
    assert.deepEqual([...output.matchAll(/ ([012]) -> (.*)$/gm)].map(([, , file]) => file), Array(3).fill('/dev/null'));
});

web_test('while a change is on trial no other is, and a change made now is said to go with it', {
    arrange: async gateway => {
        await gateway.add(pppoe);
        await gateway.add(bridged);
    }
}, async ({ user }) => {
    await try_edit(user, { mtu: 1400 });
    await user.wait_for_text('#korvel-trial-what', 'is on trial');
    await open_editor(user, '2_OTHER_B_VID_400');
    assert.equal(await user.page.$('#korvel-wayBack'), null);
    assert.match(await user.text('.modal'), /Another change is on trial\. When it is taken back, so is what you do now\./);
    await user.press_button('Dismiss', '.modal');
    await user.press_button('Delete 2_OTHER_B_VID_400');
    await user.dialogue();
    assert.match(await user.text('.modal'), /Another change is on trial\./);
});

web_test('a change on trial that began at the prompt is shown without what is not known, and kept', {
    arrange: gateway => gateway.add(pppoe)
}, async ({ gateway, user }) => {
    assert.equal((await run('korvelctl', ['try', '300', 'modify', '1', '--mtu', '1400'])).status, 0);
    await user.wait_for_text('#korvel-trial-what', 'A change is on trial.');
    assert.match(await user.text('#korvel-trial-time'), /It began at the gateway’s prompt; how long it has is not known here\./);
    await user.picture('on-trial-elsewhere');
    await user.press_button('Keep');
    await banner_gone(user);
    assert.equal(is_waiting(), false);
    assert.ok(await has_mtu(gateway, 1408));
});

// ---- people and texts ----

web_test('who may only read sees a change on trial without buttons', { arrange: gateway => gateway.add(pppoe) }, async ({ arrive, bridge, user }) => {
    const visitor = await arrive(reader);
    await visitor.open();
    await try_edit(user, { mtu: 1400 });
    await visitor.wait_for_text('#korvel-trial-what', `A change of ${name} is on trial.`);
    await visitor.wait_for_text('#korvel-trial-time', 'seconds unless it is kept.');
    assert.equal(await visitor.page.$$eval('#view button', buttons => buttons.length), 0);
    await visitor.picture('on-trial-read-only');
    assert.deepEqual(bridge.denied, []);
    await user.press_button('Keep');
    await banner_gone(visitor);
});

const nasty = ` $(touch /tmp/hacked) 'a' "b" \\ \`id\` --json <b> é `;

web_test('texts of every kind go through the way back as they are, and no password is in an argument', {
    arrange: gateway => gateway.add(pppoe)
}, async ({ gateway, user }) => {
    const list = '/gateway/arguments';
    await with_program('korvelctl', `cat /proc/[0-9]*/cmdline | tr '\\0' '\\n' >> ${list}\nexec korvelctl "$@"`, async () => {
        await try_edit(user, { pppUser: nasty, pppPwd: nasty, pppServName: nasty });
    });
    const stored = await gateway.stored(1);
    const shown = nasty.replaceAll("'", "'\\''");
    for (const option of ['username', 'password', 'service'])
        assert.ok(stored.includes(`wan.${option}='${shown}'`), `${option}\n${stored.join('\n')}`);
    assert.equal(existsSync('/tmp/hacked'), false);
    const lines = readFileSync(list, 'utf8').split('\n');
    assert.ok(lines.includes(`--pppoe=${nasty}`), 'the arguments were seen');
    assert.deepEqual(lines.filter(line => line.includes(nasty)).map(line => line.split('=')[0]).filter((each, i, all) => all.indexOf(each) === i).sort(),
        ['--pppoe', '--service-name']);
});

web_test('a password alone goes through the way back and in no argument', { arrange: gateway => gateway.add(pppoe) }, async ({ gateway, user }) => {
    const list = '/gateway/arguments';
    rmSync(list, { force: true });
    await with_program('korvelctl', `cat /proc/[0-9]*/cmdline | tr '\\0' '\\n' >> ${list}\nexec korvelctl "$@"`, async () => {
        await try_edit(user, { pppPwd: ' never-seen ' });
    });
    assert.ok((await gateway.stored(1)).includes("wan.password=' never-seen '"));
    const seen = readFileSync(list, 'utf8');
    assert.ok(seen.includes('--password-file=-') && !seen.includes('never-seen'));
});

web_test('names that look like markup are shown as they are in what is on trial', {
    arrange: async gateway => {
        await gateway.add(pppoe);
        await gateway.stop();
        await uci('set', `network.@device[1].lkname=1_${evil}`);
        await uci('commit', 'network');
        await gateway.start();
    }, settings: bridge => (bridge.intercept = bus_replies({
        'luci.korvel trial': () => ({ offered: true, waits: true, seconds: 60, wanId: 1, made: { ok: false, exit: 10, message: evil } })
    }))
}, async ({ user }) => {
    await user.wait_for_text('#korvel-trial-what', `A change of 1_${evil} is on trial; whether it was made is not known.`);
    assert.equal(await user.page.$$eval('img', nodes => nodes.length), 0);
    assert.equal(await user.page.evaluate(() => typeof hacked), 'undefined');
});

web_test('a way back is chosen and a change kept with the keyboard alone', { arrange: gateway => gateway.add(pppoe) }, async ({ gateway, user }) => {
    const { page } = user;
    const press = async (...keys) => {
        for (const key of keys)
            await page.keyboard.press(key);
    };
    const tab_to = async wanted => {
        for (let i = 0; i < 40; i++) {
            await press('Tab');
            if (await page.evaluate(text => document.activeElement.id === text || document.activeElement.textContent === text, wanted))
                return;
        }
        assert.fail(`no way to ${wanted}`);
    };
    await page.focus('.cbi-button-edit');
    await press('Enter');
    await user.dialogue();
    await tab_to('korvel-mtu');
    await press('Backspace', '1', '4', '0', '0');
    await tab_to('korvel-wayBack');
    await press('Space', 'Tab');
    assert.equal(await page.evaluate(() => document.activeElement.id), 'korvel-waySeconds');
    await tab_to('Save');
    await press('Enter');
    await user.dialogue_closed();
    await user.wait_for_text('#korvel-trial-what', 'is on trial');
    await page.evaluate(() => document.activeElement.blur());
    await tab_to('Keep');
    await press('Enter');
    await user.wait_for_text('#korvel-message', 'The change stays.');
    await user.wait('the focus on the heading', () => document.activeElement.id === 'korvel-heading');
    assert.ok(await has_mtu(gateway, 1408));
});

web_test('the script refuses arguments that it does not understand, and changes nothing', {
    arrange: gateway => gateway.add(dhcp), opens: false
}, async ({ gateway }) => {
    const script = new URL('../../web/luci-app-korvel/root/usr/libexec/rpcd/luci.korvel', import.meta.url).pathname;
    const before = await gateway.stored(1);
    for (const text of ['', '{', '{}', '[]', '{"seconds":60}', '{"wanId":1,"mtu":1400}', '{"seconds":"60","wanId":1,"mtu":1400}', '{"seconds":60,"wanId":1,"mtu":"1400"}',
        '{"seconds":60,"wanId":1,"napt":1}', '{"seconds":60,"wanId":1,"mtu":{}}', '{"seconds":60,"wanId":1,"mtu":1400.5}', '{"seconds":60,"wanId":1,"service":8}',
        '{"seconds":60,"wanId":1,"ipProtocol":0}', '{"seconds":60,"wanId":1,"pppPwd":"a\\nb"}', '{"seconds":60,"wanId":1,"ports":"\\u0000"}', '{"seconds":-5,"wanId":1,"mtu":1400}'])
        assert.deepEqual(await run('sh', [script, 'call', 'try_modify'], text), { status: 2, output: '', errors: '' }, text);
    for (const text of ['{"seconds":60,"wanId":9,"mtu":1400}', '{"seconds":60,"wanId":1}', '{"seconds":0,"wanId":1,"mtu":1400}', '{"seconds":60,"wanId":1,"ports":"lan99"}',
        '{"seconds":60,"wanId":1,"ports":"--json"}'])
        assert.equal(JSON.parse((await run('sh', [script, 'call', 'try_modify'], text)).output).ok, false, text);
    assert.deepEqual(await gateway.stored(1), before);
    assert.equal(is_waiting(), false);
});
