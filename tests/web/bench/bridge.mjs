// What stands between browser and bus on a router, as far as a view notices: pages, sessions and rights, and remote
// procedures that are passed on to the gateway's bus.
import { createServer } from 'node:http';
import { randomBytes } from 'node:crypto';
import { existsSync, readFileSync } from 'node:fs';
import { join, normalize } from 'node:path';
import { bus_call, bus_has, run } from './bus.mjs';
import { may_call, visible_menu, work_out_rights } from './access.mjs';
import { minify } from './minify.mjs';
import { catalogue } from './messages.mjs';
import { application, bench_directory } from './paths.mjs';

const largest_body = 64 * 1024;
const no_session = '0'.repeat(32);
const types = { '.js': 'text/javascript', '.css': 'text/css', '.html': 'text/html' };

const failure = (code, message) => ({ error: { code, message } });
const refusals = {
    parse: () => failure(-32700, 'Parse error'),
    method: () => failure(-32601, 'Method not found'),
    params: () => failure(-32602, 'Invalid parameters'),
    object: () => failure(-32000, 'Object not found'),
    access: () => failure(-32002, 'Access denied'),
    timeout: () => failure(-32003, 'ubus request timed out')
};

const escaped = text => String(text).replace(/[&<>"]/g, c => `&#${c.charCodeAt(0)};`);

export class bridge {
    constructor() {
        this.sessions = new Map([[no_session, { rights: work_out_rights({ read: ['unauthenticated'] }) }]]);
        this.calls = []; // { object, method, args, reply }: what went to the bus or to the package's script
        this.denied = []; // 'object.method': what was asked for without the right
        this.intercept = null; // (object, method, args) → undefined, or a promise of an answer in place of the bus's
        this.minified = false;
        this.language = 'en';
        this.visitors = null; // { name: login }: who comes to /?as=NAME is logged in; without a name, the first
        this.env = {}; // settings of the framework: rpctimeout, pollinterval
        this.server = createServer((request, reply) => this.serve(request, reply));
        // By itself it closes connections after 5 s, which is when the framework polls: a call may just be on its way.
        this.server.keepAliveTimeout = 0;
    }

    listen(place) {
        return new Promise((resolve, reject) => {
            this.server.once('error', reject);
            this.server.listen(place, () => resolve(this.server.address()));
        });
    }

    close() {
        this.server.closeAllConnections();
        return new Promise(resolve => this.server.close(resolve));
    }

    // A session for a login's lists of access groups; its identifier.
    login(login) {
        const id = randomBytes(16).toString('hex');
        this.sessions.set(id, { rights: work_out_rights(login) });
        return id;
    }

    logout(id) {
        this.sessions.delete(id);
    }

    async serve(request, reply) {
        try {
            const path = new URL(request.url, 'http://gateway').pathname;
            if (path === '/ubus/' || path === '/ubus')
                await this.serve_calls(request, reply);
            else if (path.startsWith('/luci-static/'))
                this.serve_file(path, reply);
            else
                this.serve_page(request, reply, path);
        } catch (error) {
            console.error(error);
            reply.writeHead(500).end(String(error.message));
        }
    }

    // ---- files and pages ----

    serve_file(path, reply) {
        const safe = normalize(path);
        const own = safe.startsWith('/luci-static/bench/');
        const file = own ? join(bench_directory, 'framework', safe.slice('/luci-static/bench/'.length))
                         : join(application, 'htdocs', safe);
        const type = types[safe.slice(safe.lastIndexOf('.'))];
        if (!type || !existsSync(file))
            return reply.writeHead(404).end();
        const text = readFileSync(file, 'utf8');
        reply.writeHead(200, { 'Content-Type': `${type}; charset=utf-8`, 'Cache-Control': 'no-store' });
        return reply.end(this.minified && !own ? minify(text) : text);
    }

    // The page of a menu entry, for the session in the cookie; ?dark for the dark theme.
    serve_page(request, reply, path) {
        const url = new URL(request.url, 'http://gateway');
        if (this.visitors && path === '/')
            return this.let_in(url.searchParams.get('as') ?? Object.keys(this.visitors)[0], reply);
        const session_id = /(?:^|; )sysauth_http=([0-9a-f]+)/.exec(request.headers.cookie ?? '')?.[1];
        const session = this.sessions.get(session_id);
        if (!session)
            return reply.writeHead(403, { 'Content-Type': 'text/html' }).end('<h1>Please log in</h1>');
        const menu = visible_menu(session.rights);
        const entry = menu.find(item => path === `/cgi-bin/luci/${item.path}`);
        if (!entry && path !== '/cgi-bin/luci/')
            return reply.writeHead(403, { 'Content-Type': 'text/html' }).end(this.page(session_id, menu, null, ''));
        const dark = url.searchParams.has('dark');
        reply.writeHead(200, { 'Content-Type': 'text/html; charset=utf-8', 'Cache-Control': 'no-store' });
        return reply.end(this.page(session_id, menu, entry, dark ? ' data-darkmode="true"' : ''));
    }

    let_in(name, reply) {
        const session = this.login(this.visitors[name] ?? {});
        reply.writeHead(303, {
            'Set-Cookie': `sysauth_http=${session}; HttpOnly; SameSite=Strict; Path=/`,
            Location: '/cgi-bin/luci/admin/network/korvel'
        });
        return reply.end();
    }

    page(session_id, menu, entry, theme) {
        const texts = catalogue(this.language);
        const title = text => escaped(texts[text] ?? text);
        const items = menu.map(item => `<li><a href="/cgi-bin/luci/${item.path}">${title(item.title)}</a></li>`);
        const bench = {
            env: { sessionid: session_id, ...this.env },
            catalogue: texts,
            readonly: entry?.readonly ?? null,
            view: entry ? 'view.' + entry.view.replaceAll('/', '.') : null
        };
        return `<!DOCTYPE html>
<html lang="${this.language}"${theme}>
<head>
<meta charset="utf-8"><meta name="viewport" content="width=device-width, initial-scale=1">
<title>${entry ? title(entry.title) : 'Gateway'}</title><link rel="icon" href="data:,">
<link rel="stylesheet" href="/luci-static/bench/theme.css">
<script>const bench = ${JSON.stringify(bench).replaceAll('<', '\\u003c')};</script>
<script src="/luci-static/bench/framework.js"></script>
</head>
<body>
<header><h1 class="brand">Gateway</h1><nav aria-label="Menu"><ul>${items.join('')}</ul></nav><span id="indicators"></span></header>
<main id="maincontent"><div id="view">${entry ? '<div class="spinning">Loading view</div>' : '<h1>403</h1>'}</div></main>
</body>
</html>
`;
    }

    // ---- remote procedures ----

    async serve_calls(request, reply) {
        let text = '';
        request.setEncoding('utf8');
        for await (const part of request) {
            text += part;
            if (Buffer.byteLength(text) > largest_body)
                return request.destroy();
        }
        let calls;
        try {
            calls = JSON.parse(text);
        } catch {
            calls = {};
        }
        let answer;
        if (Array.isArray(calls)) {
            answer = [];
            for (const call of calls) // in order, one at a time
                answer.push(await this.answer(call));
        } else {
            answer = await this.answer(calls);
        }
        reply.writeHead(200, { 'Content-Type': 'application/json' });
        return reply.end(JSON.stringify(answer));
    }

    async answer(call) {
        const head = { jsonrpc: '2.0', id: call?.id ?? null };
        return { ...head, ...(await this.judge(call)) };
    }

    async judge(call) {
        const params = call?.params;
        if (call?.jsonrpc !== '2.0' || typeof call.method !== 'string')
            return refusals.parse();
        if (call.method !== 'call')
            return refusals.method();
        if (!Array.isArray(params) || params.length < 4 || params[3] === null || typeof params[3] !== 'object')
            return refusals.parse();
        const [session_id, object, method, args] = params;
        if ('ubus_rpc_session' in args)
            return refusals.params();
        const laid_down = await this.intercept?.(object, method, args);
        if (laid_down)
            return laid_down;
        if (!(await this.has_object(object)))
            return refusals.object();
        const session = this.sessions.get(session_id);
        if (!may_call(session?.rights, object, method)) {
            this.denied.push(`${object}.${method}`);
            return refusals.access();
        }
        const record = { object, method, args };
        this.calls.push(record);
        const answer = await this.carry_out(session_id, object, method, args);
        record.answer = answer;
        return answer;
    }

    async has_object(object) {
        return object === 'session' || existsSync(this.script(object)) || (await bus_has(object));
    }

    // A package's own object: a program, run for each call.
    script(object) {
        return join(application, 'root/usr/libexec/rpcd', object.replaceAll('/', '_'));
    }

    async carry_out(session_id, object, method, args) {
        const passed = { ...args, ubus_rpc_session: session_id };
        if (object === 'session')
            return { result: [0, { access: may_call(this.sessions.get(session_id)?.rights, args.object, args.function) }] };
        if (existsSync(this.script(object)))
            return this.run_script(object, method, passed);
        const { status, reply } = await bus_call(object, method, passed);
        if (status === 7)
            return refusals.timeout();
        if (status === 4 && reply === undefined)
            return refusals.object();
        return { result: reply === undefined ? [status] : [status, reply] };
    }

    async run_script(object, method, args) {
        const { status, output } = await run('sh', [this.script(object), 'call', method], JSON.stringify(args));
        if (status !== 0)
            return { result: [status > 127 ? 9 : status] };
        return { result: output.trim() ? [0, JSON.parse(output)] : [0] };
    }
}
