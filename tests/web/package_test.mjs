// What the package installs fits together: files, rights, calls, texts.
import assert from 'node:assert/strict';
import { existsSync, readFileSync, statSync, writeFileSync } from 'node:fs';
import { basename, join } from 'node:path';
import { access_groups, menu_entries } from './bench/access.mjs';
import { run } from './bench/bus.mjs';
import { read_catalogue, read_translation, scripts, template, template_path, translations, untranslatable_calls, used_texts } from './bench/messages.mjs';
import { minify } from './bench/minify.mjs';
import { application } from './bench/paths.mjs';
import { plain_test, pppoe, web_test } from './fixture.mjs';

const sources = () => scripts().map(path => ({ path, source: readFileSync(path, 'utf8') }));

// 'object.method' of every call that the scripts declare.
function declared_calls() {
    return sources().flatMap(({ source }) =>
        [...source.matchAll(/rpc\.declare\(\{\s*object: '([^']+)',\s*method: '([^']+)'/g)].map(([, object, method]) => `${object}.${method}`)).sort();
}

function granted_calls(...parts) {
    const group = access_groups()['luci-app-korvel'];
    return parts.flatMap(part => Object.entries(group[part].ubus).flatMap(([object, methods]) =>
        methods.map(method => `${object}.${method}`))).sort();
}

plain_test('every call of the scripts is granted, and every grant is for a call', () => {
    const count = sources().reduce((sum, { source }) => sum + source.split('rpc.declare(').length - 1, 0);
    assert.equal(declared_calls().length, count, 'each declaration was understood');
    assert.deepEqual(declared_calls(), granted_calls('read', 'write'));
});

plain_test('who may only read is granted nothing that tells a password or changes anything', () => {
    assert.deepEqual(granted_calls('read'), ['boardinfo.all', 'korvel.state.last', 'korvel.state.pending', 'luci.korvel.trial',
        'luci.korvel.wans']);
    assert.deepEqual(Object.keys(access_groups()['luci-app-korvel'].read), ['ubus']);
    assert.ok(!granted_calls('read', 'write').some(call => ['korvel.delAll', 'korvel.addDev'].includes(call)));
});

plain_test('the menu leads to a view that is there and asks for a group that is there', () => {
    for (const entry of Object.values(menu_entries())) {
        assert.ok(existsSync(join(application, 'htdocs/luci-static/resources/view', `${entry.action.path}.js`)), entry.action.path);
        for (const group of entry.depends.acl)
            assert.ok(group in access_groups(), group);
    }
});

plain_test('the package is of the version and needs what the page needs', () => {
    const makefile = readFileSync(join(application, 'Makefile'), 'utf8');
    const project = readFileSync(join(application, '../../CMakeLists.txt'), 'utf8');
    assert.match(makefile, /^LUCI_DEPENDS:=\+luci-base \+korvel \+korvel-tools$/m);
    assert.equal(/^PKG_VERSION:=(.*)$/m.exec(makefile)[1], /project\(korvel\s+VERSION ([\d.]+)/.exec(project)[1]);
    assert.match(makefile, /^# call BuildPackage - OpenWrt buildroot signature$/m);
    assert.ok(statSync(join(application, 'root/usr/libexec/rpcd/luci.korvel')).mode & 0o100, 'the script can be executed');
});

web_test('the script says which methods it has, and they are those that are granted', { opens: false }, async () => {
    const script = join(application, 'root/usr/libexec/rpcd/luci.korvel');
    const { output } = await run(script, ['list']);
    assert.deepEqual(Object.keys(JSON.parse(output)).sort(), ['confirm', 'stored', 'take_back', 'trial', 'try_del',
        'try_modify', 'wans']);
    assert.equal((await run(script, ['call', 'nothing'])).status, 3);
    assert.equal((await run(script, ['call', 'stored'], '{}')).status, 2);
});

// The names of the arguments in the order in which the bus object declares them.
web_test('the fields are the arguments of the daemon, of its types and in its order', { opens: false }, async () => {
    const { output } = await run('ubus', ['-v', 'list', 'korvel']);
    const add = /"add":(\{[^}]*\})/.exec(output)[1];
    const wanted = Object.entries(JSON.parse(add)).filter(([name]) => name !== 'notUsed');
    const source = readFileSync(join(application, 'htdocs/luci-static/resources/view/korvel/wan.js'), 'utf8');
    const kinds = { Integer: 'number', Boolean: 'flag', String: 'text' };
    const fields = [...source.matchAll(/\{ name: '(\w+)', type: '(\w+)'/g)].map(([, name, type]) => [name, type]);
    assert.deepEqual(fields, wanted.map(([name, type]) => [name, kinds[type]]));
});

plain_test('every text can be translated, and the template has just these', () => {
    assert.deepEqual(untranslatable_calls(), []);
    if (process.env.KORVEL_WEB_NEW_TEMPLATE) // where that can be written
        writeFileSync(process.env.KORVEL_WEB_NEW_TEMPLATE, template());
    assert.equal(readFileSync(template_path, 'utf8'), template());
    assert.equal(read_catalogue(template()).length, used_texts().length);
});

for (const language of ['de'])
    plain_test(`the translation ${language} is complete and keeps every place for data`, () => {
        assert.ok(translations().includes(language));
        const key = entry => [entry.context, entry.id, entry.plural].join('|');
        const translated = new Map(read_translation(language).map(entry => [key(entry), entry]));
        const places = text => (text.match(/%[a-z]/g) ?? []).sort().join();
        for (const entry of used_texts()) {
            const found = translated.get(key(entry));
            assert.ok(found, `missing: ${entry.id}`);
            assert.equal(found.texts.length, entry.plural ? 2 : 1, entry.id);
            for (const text of found.texts) {
                assert.notEqual(text, '', entry.id);
                assert.equal(places(text), places(entry.id), entry.id);
            }
        }
        assert.equal(translated.size, used_texts().length, 'nothing is left of texts that are gone');
    });

plain_test('no script has what the build or an older framework would trip over', () => {
    for (const { path, source } of sources()) {
        const code = source.replace(/\/\*[\s\S]*?\*\//g, '').replace(/'(?:[^'\\\n]|\\.)*'/g, "''");
        for (const forbidden of ['addTimeLimitedNotification', '<thead', 'import ', 'innerHTML', '%{', 'L.loaded', 'hasSystemFeature', '//'])
            assert.ok(!code.includes(forbidden), `${basename(path)}: ${forbidden}`);
        assert.doesNotMatch(code, /=>\s*\//, `${basename(path)}: a regular expression behind an arrow`);
        assert.doesNotMatch(code, /params: \{/, `${basename(path)}: params as an object`);
        new Function(minify(source)); // throws where the shortened file is none
    }
});

web_test('shortened as the build does it, the page works', {
    arrange: gateway => gateway.add(pppoe), settings: bridge => (bridge.minified = true)
}, async ({ gateway, user }) => {
    await user.wait_for_rows(1);
    await user.press_button('Edit 1_INTERNET_R_VID_100');
    await user.dialogue();
    await user.set('mtu', 1400);
    await user.press_button('Save', '.modal');
    await user.dialogue_closed();
    assert.ok((await gateway.stored(1)).includes("device.mtu='1408'"));
});
