// The application's texts: those in its sources, in the template, and in a translation.
import { existsSync, readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { application } from './paths.mjs';
import { access_groups, menu_entries } from './access.mjs';

// An entry of a catalogue is known by context and text, and by both texts where it depends on a number.
function key_of(entry) {
    return entry.plural ? `${entry.id}\u0002${entry.plural}` : entry.context ? `${entry.id}\u0001${entry.context}` : entry.id;
}

// The entries of a .po or .pot file: { id, plural, context, texts, fuzzy }.
export function read_catalogue(text) {
    const entries = [];
    let entry = null;
    let into = null;
    for (const line of text.split('\n')) {
        const [, keyword, quoted] = /^(?:(msgctxt|msgid|msgid_plural|msgstr(?:\[\d\])?) )?(".*")$/.exec(line) ?? [];
        if (/^#,.*fuzzy/.test(line))
            throw new Error(`a fuzzy entry: ${line}`);
        if (quoted === undefined)
            continue;
        if (keyword === 'msgctxt' || (keyword === 'msgid' && into !== 'context'))
            entries.push((entry = { id: '', plural: '', context: '', texts: [] }));
        if (keyword)
            into = { msgctxt: 'context', msgid: 'id', msgid_plural: 'plural' }[keyword] ?? Number(/\d/.exec(keyword)?.[0] ?? 0);
        const part = JSON.parse(quoted);
        if (typeof into === 'number')
            entry.texts[into] = (entry.texts[into] ?? '') + part;
        else
            entry[into] += part;
    }
    return entries.filter(item => item.id !== '');
}

function catalogue_path(language) {
    return join(application, 'po', language, 'korvel.po');
}

export const template_path = join(application, 'po/templates/korvel.pot');

export function translations() {
    return readdirSync(join(application, 'po')).filter(name => name !== 'templates');
}

export function read_translation(language) {
    return read_catalogue(readFileSync(catalogue_path(language), 'utf8'));
}

// What the page's `_` and `N_` look texts up in.
export function catalogue(language) {
    const texts = {};
    if (!existsSync(catalogue_path(language)))
        return texts;
    for (const entry of read_translation(language))
        texts[key_of(entry)] = entry.plural ? entry.texts : entry.texts[0];
    return texts;
}

function view_files(directory) {
    return readdirSync(directory, { withFileTypes: true }).flatMap(item => {
        const path = join(directory, item.name);
        return item.isDirectory() ? view_files(path) : item.name.endsWith('.js') ? [path] : [];
    }).sort();
}

export const scripts = () => view_files(join(application, 'htdocs'));

const literal = String.raw`'((?:[^'\\\n]|\\.)*)'`;
const unquoted = text => JSON.parse(`"${text.replace(/\\'/g, "'").replace(/"/g, '\\"')}"`).replace(/\s+/g, ' ').trim();

// Every text that is to be translated, once each: from the scripts, the menu and the access file.
export function used_texts() {
    const found = new Map();
    const add = (file, id, plural = '', context = '') => {
        const entry = { id, plural, context, files: [file] };
        const known = found.get(key_of(entry));
        if (known)
            known.files = [...new Set([...known.files, file])];
        else
            found.set(key_of(entry), entry);
    };
    for (const path of scripts()) {
        const source = readFileSync(path, 'utf8');
        const file = path.slice(application.length + 1);
        for (const [, id, context] of source.matchAll(new RegExp(String.raw`\b_\(\s*${literal}(?:,\s*${literal})?\s*\)`, 'g')))
            add(file, unquoted(id), '', context ? unquoted(context) : '');
        for (const [, one, many] of source.matchAll(new RegExp(String.raw`\bN_\([^']*?,\s*${literal},\s*${literal}`, 'g')))
            add(file, unquoted(one), unquoted(many));
    }
    for (const entry of Object.values(menu_entries()))
        add('root/usr/share/luci/menu.d/luci-app-korvel.json', entry.title);
    add('root/usr/share/rpcd/acl.d/luci-app-korvel.json', access_groups()['luci-app-korvel'].description);
    return [...found.values()];
}

// Calls of `_` and `N_` whose text is no literal, and so is in no template.
export function untranslatable_calls() {
    return scripts().flatMap(path => {
        const source = readFileSync(path, 'utf8');
        const calls = [...source.matchAll(/(?<![\w.])N?_\(([^)]*)/g)];
        return calls.filter(([call, args]) => (call.startsWith('N_') ? !/,\s*'/.test(args) : !/^\s*'/.test(args)))
            .map(([call]) => `${path}: ${call}`);
    });
}

// The template as it has to be.
export function template() {
    const head = ['msgid ""', 'msgstr "Content-Type: text/plain; charset=UTF-8"', ''];
    const entries = used_texts().flatMap(entry => [
        ...entry.files.map(file => `#: ${file}`),
        ...(entry.context ? [`msgctxt ${JSON.stringify(entry.context)}`] : []),
        `msgid ${JSON.stringify(entry.id)}`,
        ...(entry.plural ? [`msgid_plural ${JSON.stringify(entry.plural)}`, 'msgstr[0] ""', 'msgstr[1] ""'] : ['msgstr ""']),
        ''
    ]);
    return [...head, ...entries].join('\n');
}
