// What every test has: a gateway of its own, the bridge to it, a browser, and a user who may change WANs.
import assert from 'node:assert/strict';
import { bridge } from './bench/bridge.mjs';
import { gateway } from './bench/gateway.mjs';
import { start_browser, user } from './bench/browser.mjs';

export * from './examples.mjs';

export const administrator = { read: ['*'], write: ['*'] };
export const reader = { read: ['*'] };
const poll_speed = 5; // times as fast as on a router

// Shared by the tests, which run one after the other: a start takes longer than most of them.
let browser = null;
const there = new gateway();

// What the files of tests have added: { name, body }.
export const tests = [];

// A test that needs neither gateway nor browser.
export function plain_test(name, body) {
    tests.push({ name, body });
}

export async function close_all() {
    await browser?.close();
    browser = null;
    await there.stop();
}

// Runs a test in a gateway without WANs; `arrange` gets it before the user opens the page. `host` is the gateway's address
// that the pages are fetched from. The body gets { gateway, bridge, user, arrive, t }, where arrive() brings another user and t
// is the runner's. A page that the framework refused something, or that left a failure uncaught, fails the test.
export function web_test(name, { arrange, login = administrator, viewport, query = '', settings = () => {}, opens = true, host = '127.0.0.1' }, body) {
    plain_test(name, async t => {
        browser ??= await start_browser();
        const between = new bridge();
        between.env.pollspeed = poll_speed;
        const users = [];
        try {
            await there.reset();
            await arrange?.(there);
            settings(between);
            const { port } = await between.listen({ host: host.startsWith('[') ? '::' : '0.0.0.0', port: 0 });
            const arrive = async (as = login, size = viewport) => {
                const session = between.login(as);
                const visitor = await user.arrive(browser, `http://${host}:${port}`, session, size);
                visitor.session = session;
                users.push(visitor);
                return visitor;
            };
            const visitor = await arrive();
            if (opens)
                await visitor.open(query);
            await body({ gateway: there, bridge: between, user: visitor, arrive, t });
            for (const each of users)
                assert.deepEqual(await each.complaints(), []);
        } finally {
            for (const each of users)
                await each.leave();
            await between.close();
        }
    });
}

// Replies laid down in place of the bus's: { 'object method': args → reply }.
export function bus_replies(replies) {
    return (object, method, args) => {
        const make = replies[`${object} ${method}`];
        return make ? { result: [0, make(args)] } : undefined;
    };
}

// Edits the only WAN there is, and waits until it is done.
export async function edit(user, values) {
    await user.page.click('.cbi-button-edit');
    await user.dialogue();
    await user.fill(values);
    await user.press_button('Save', '.modal');
    await user.dialogue_closed();
    await user.wait('the button enabled', () => !document.querySelector('.cbi-button-edit')?.disabled);
}
