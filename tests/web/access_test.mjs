// An audit of the pages for people who do not see them, or not well.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { bridged, bus_replies, dhcp, pppoe, static_wan, web_test } from './fixture.mjs';
import { phone } from './bench/browser.mjs';
import { installed_require } from './bench/paths.mjs';

const audit_script = readFileSync(installed_require.resolve('axe-core/axe.min.js'), 'utf8');

// Findings, a line each; what is behind a dialogue is not looked at while one is open.
async function audit(user) {
    if (!(await user.page.evaluate(() => typeof axe !== 'undefined')))
        await user.page.evaluate(audit_script);
    return user.page.evaluate(async () => {
        const open = document.body.classList.contains('modal-overlay-active');
        const { violations, passes } = await axe.run(open ? '.modal' : document);
        if (passes.length === 0)
            return ['nothing was looked at'];
        return violations.flatMap(found => found.nodes.map(node => `${found.id}: ${found.help}: ${node.html}`));
    });
}

const add_all_kinds = async gateway => {
    for (const wan of [pppoe, dhcp, static_wan, bridged])
        await gateway.add(wan);
    await gateway.settle();
};

const no_trial = { offered: true, waits: false };
let shown_trial = no_trial;

const told = bus_replies({
    'luci.korvel trial': () => shown_trial,
    'korvel.state pending': () => ({ pending: [{ wanId: 1, wanName: '1_INTERNET_R_VID_100', seconds: 9, asked: '2026-11-22T05:00:00Z', changes: ['mtu'] }] }),
    'korvel.state last': () => ({ last: [{ action: 'created', wanId: 1, wanName: '1_INTERNET_R_VID_100', when: '2026-11-22T05:00:00Z', result: 'OK' }] })
});

for (const [look, options] of [['light', {}], ['dark', { query: '?dark' }], ['phone', { viewport: phone }]])
    web_test(`the audit finds nothing (${look})`, { arrange: add_all_kinds, settings: bridge => (bridge.intercept = told), ...options }, async ({ gateway, user }) => {
        await user.wait_for_text('#korvel-waiting', '9 seconds');
        assert.deepEqual(await audit(user), []);
        await user.press_button('Edit 1_INTERNET_R_VID_100');
        await user.dialogue();
        for (const tab of ['general', 'ipv4', 'ipv6', 'pppoe', 'ports']) {
            await user.tab(tab);
            assert.deepEqual(await audit(user), [], tab);
        }
        await user.fill({ vid: 9999, ipMode: 1, ip: 'x', wayBack: true, waySeconds: 1 });
        await user.press_button('Save', '.modal');
        await user.wait_for_text('.modal [role=alert]', 'A whole number');
        assert.deepEqual(await audit(user), [], 'with errors');
        await user.press_button('Dismiss', '.modal');
        await user.press_button('Delete 1_INTERNET_R_VID_100');
        await user.dialogue();
        assert.deepEqual(await audit(user), [], 'deleting');
        await user.set('wayBack', true);
        assert.deepEqual(await audit(user), [], 'deleting with a way back');
        await user.press_button('Dismiss', '.modal');
        try {
            const made = { ok: true, result: 'changed', wanId: 1, wanName: '1_INTERNET_R_VID_100' };
            for (const trial of [{ waits: true, seconds: 60, made }, { waits: true }, { waits: false, undoing: true }, { waits: false, ended: 'kept', made }]) {
                shown_trial = { offered: true, wanId: 1, ...trial };
                await user.open(options.query);
                await user.wait('the banner', () => document.querySelector('#korvel-trial').offsetParent);
                assert.deepEqual(await audit(user), [], JSON.stringify(trial));
                if (trial.seconds)
                    await user.picture(`on-trial-${look}`);
            }
        } finally {
            shown_trial = no_trial;
        }
        await gateway.stop();
        await user.wait_for_text('#korvel-notice', 'The daemon korvel is not running.');
        assert.deepEqual(await audit(user), [], 'with the daemon down');
    });
