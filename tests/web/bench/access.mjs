// Who may call what: the application's access file, read as the remote-procedure daemon reads it.
import { readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { application } from './paths.mjs';

const access_directory = join(application, 'root/usr/share/rpcd/acl.d');
const menu_directory = join(application, 'root/usr/share/luci/menu.d');

function read_all(directory) {
    const files = readdirSync(directory).map(name => JSON.parse(readFileSync(join(directory, name), 'utf8')));
    return Object.assign({}, ...files);
}

// What callers without a session may do, which comes with the framework.
const everybody = { unauthenticated: { description: 'Log in', read: { ubus: { session: ['access', 'login'] } } } };

export function access_groups() {
    return { ...everybody, ...read_all(access_directory) };
}

export const menu_entries = () => read_all(menu_directory);

// A session's rights from its login: `read` and `write` name groups or all of them by '*'.
export function work_out_rights(login) {
    const rights = { ubus: new Map(), readable: new Set(), writable: new Set() };
    const named = (list, group) => list.includes(group) || (list.includes('*') && !list.includes('!' + group));
    const grant = part => {
        for (const [object, methods] of Object.entries(part?.ubus ?? {}))
            rights.ubus.set(object, [...(rights.ubus.get(object) ?? []), ...methods]);
    };
    for (const [name, group] of Object.entries(access_groups())) {
        const writes = named(login.write ?? [], name);
        if (writes || named(login.read ?? [], name)) {
            grant(group.read);
            rights.readable.add(name);
        }
        if (writes) {
            grant(group.write);
            rights.writable.add(name);
        }
    }
    return rights;
}

export function may_call(rights, object, method) {
    return Boolean(rights?.ubus.get(object)?.some(granted => granted === method || granted === '*'));
}

// What a session sees of the menu: { path, title, view, readonly } of each entry that it may read.
export function visible_menu(rights) {
    return Object.entries(menu_entries()).flatMap(([path, entry]) => {
        const groups = entry.depends?.acl ?? [];
        if (!groups.every(group => rights.readable.has(group)))
            return [];
        const readonly = !groups.every(group => rights.writable.has(group));
        return [{ path, title: entry.title, view: entry.action.path, readonly }];
    });
}
