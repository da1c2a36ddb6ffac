// The stand-ins themselves: what a view relies on here has to be as it is on a router.
import assert from 'node:assert/strict';
import { may_call, work_out_rights } from './bench/access.mjs';
import { minify } from './bench/minify.mjs';
import { administrator, dhcp, plain_test, reader, web_test } from './fixture.mjs';

async function ask(address, session, object, method, args = {}, id = 7) {
    const reply = await fetch(`${address}/ubus`, {
        method: 'POST', body: JSON.stringify({ jsonrpc: '2.0', id, method: 'call', params: [session, object, method, args] })
    });
    return reply.json();
}

web_test('the bridge answers as a router does', { opens: false }, async ({ bridge, gateway, user }) => {
    const { address, session } = user;
    const result = async (...call) => (await ask(address, session, ...call)).result;
    const error = async (...call) => (await ask(address, ...call)).error.code;

    assert.deepEqual(await ask(address, session, 'korvel', 'all'), { jsonrpc: '2.0', id: 7, result: [0] });
    assert.deepEqual(await result('korvel', 'add', { wanMode: 1, mtu: 2000 }), [0, { status: -1, info: 'korvel add ERR! Invalid MTU.' }]);
    assert.deepEqual(await result('korvel', 'get', { wanId: 9 }), [2, { status: -1, info: 'korvel get ERR!' }]);
    assert.deepEqual(await result('korvel', 'add', dhcp), [0, { status: 0, info: 'korvel modify OK.' }]);
    assert.equal((await result('korvel', 'all'))[1]['1'].wanName, '1_TR069_R_VID_200');
    assert.equal(await error('f'.repeat(32), 'korvel', 'all'), -32002);
    assert.equal(await error(bridge.login(reader), 'korvel', 'del', { wanId: 1 }), -32002);
    assert.equal(await error(session, 'korvel', 'delAll'), -32002, 'not even who may do all that the package grants');
    assert.equal(await error('f'.repeat(32), 'nothing', 'all'), -32000, 'asked before rights are');
    assert.equal(await error(session, 'korvel', 'all', { ubus_rpc_session: 'x' }), -32602);
    assert.equal(await error(session, 'korvel', 'all', null), -32700);
    const listed = await fetch(`${address}/ubus`, { method: 'POST', body: '{"jsonrpc":"2.0","id":1,"method":"other"}' });
    assert.equal((await listed.json()).error.code, -32601);
    const broken = await fetch(`${address}/ubus`, { method: 'POST', body: '{' });
    assert.deepEqual(await broken.json(), { jsonrpc: '2.0', id: null, error: { code: -32700, message: 'Parse error' } });
    await assert.rejects(fetch(`${address}/ubus`, { method: 'POST', body: 'x'.repeat(70000) }));
    await gateway.stop();
    assert.equal(await error(session, 'korvel', 'all'), -32000);
    await gateway.start();
});

web_test('arguments of a wrong type are missing to the daemon behind the bridge', {
    arrange: gateway => gateway.add(dhcp), opens: false
}, async ({ gateway, user }) => {
    await ask(user.address, user.session, 'korvel', 'modify', { wanId: 1, ...dhcp, napt: 1, vid: '200', mtu: 1500.5 });
    const stored = await gateway.stored(1);
    assert.ok(stored.includes("wan.napt='0'") && stored.includes("device.vid='0'") && stored.includes("device.mtu='0'"), stored.join('\n'));
});

// Runs a script as a view is run, on the page; what it returns.
const as_view = (user, body) => user.page.evaluate(async text => {
    const { require_class } = bench.framework;
    const [rpc, ui, dom] = ['rpc', 'ui', 'dom'].map(require_class);
    return new (Object.getPrototypeOf(async function() {}).constructor)('rpc', 'ui', 'dom', text)(rpc, ui, dom);
}, body);

const refused = (user, body) => as_view(user, `try { ${body} } catch (error) { bench.refusals.pop(); return error.message; }`);

web_test('the framework’s stand-in refuses what it does not offer', {}, async ({ user }) => {
    for (const [body, wanted] of [['ui.Table;', 'ui.Table'], ['L.hasSystemFeature();', 'L.hasSystemFeature'], ['ui.addTimeLimitedNotification();',
        'ui.addTimeLimitedNotification'], ["rpc.declare({ object: 'x', method: 'y', params: { a: 1 } });", 'params as an object'],
        ["rpc.declare({ object: 'x', methods: 'y' });", 'methods'], ["'%{name}'.format({ name: 1 });", 'format'], ['L.env.language;', 'L.env.language'],
        ["E('<p>x</p>');", 'markup']])
        assert.match((await refused(user, body)) ?? `nothing refused: ${body}`, new RegExp(`stand-in: .*${wanted}`));
});

web_test('the framework’s stand-in has the traps of the real one', {}, async ({ user }) => {
    const look = await as_view(user, `
        return {
            markup: E('p', {}, '<b>x</b>').children.length,
            text: E('p', {}, [ '<b>x</b>' ]).children.length,
            nothing: E('p', {}, [ null, false ]).textContent,
            disabled: E('button', { disabled: false }).disabled,
            skipped: E('button', { disabled: null }).disabled,
            none: await rpc.declare({ object: 'korvel', method: 'all' })(),
            expected: await rpc.declare({ object: 'korvel', method: 'all', expect: { '': {} } })(),
            refusal: await rpc.declare({ object: 'korvel', method: 'get', params: [ 'wanId' ], expect: { '': {} } })(9),
            positional: await rpc.declare({ object: 'korvel', method: 'get', params: [ 'wanId' ] })({ wanId: 9 }),
            rejected: await rpc.declare({ object: 'nothing', method: 'all' })().catch(error => error.message.split('\\n').length),
            duration: '%t'.format(90061)
        };`);
    assert.deepEqual(look, {
        markup: 1, text: 0, nothing: 'nullfalse', disabled: true, skipped: false, none: 0, expected: {},
        refusal: { status: -1, info: 'korvel get ERR!' }, positional: { status: -1, info: 'korvel get ERR! Invalid WAN ID.' }, rejected: 2,
        duration: '1d 1h 1m 1s'
    });
});

plain_test('the minifier has the blind spot of the real one', () => {
    assert.equal(minify("/* a */ const a = /[/'\"]/ ;\n// b\nreturn /x y/;\n"), "const a=/[/'\"]/;return/x y/;");
    assert.throws(() => new Function(minify("const f = x => /'/.test(x);\nreturn 'a';")));
    assert.equal(minify('a = b + +c;\nd()\ne(`x  y`)'), 'a=b+ +c;d()\ne(`x  y`)');
});

plain_test('a login gets the parts of a group that its lists name', () => {
    const may = (login, method) => may_call(work_out_rights(login), method === 'wans' ? 'luci.korvel' : 'korvel', method);
    const asked = login => ['wans', 'del'].map(method => may(login, method));
    assert.deepEqual(asked(administrator), [true, true]);
    assert.deepEqual(asked(reader), [true, false]);
    assert.deepEqual(asked({ read: [], write: ['luci-app-korvel'] }), [true, true]);
    assert.deepEqual(asked({ read: ['*', '!luci-app-korvel'] }), [false, false]);
});
