/*
 * A stand-in for the web framework that the application runs in: as much of it as a view over the bus needs, with the
 * semantics of the oldest supported release where releases differ. What it does not offer it refuses with an error that
 * names it, so that no view passes here by a member that is missing or that means something else on a router.
 *
 * The page defines `bench` before: env (the framework's L.env), catalogue (translations), readonly, view.
 */
'use strict';

(function() {

class StandInError extends Error {
	constructor(message) {
		super('stand-in: ' + message);
		this.name = 'StandInError';
		bench.refusals.push(this.message);
	}
}

/* Languages and consoles look these up by themselves. */
const looked_up = [ 'then', 'toJSON', 'constructor', 'prototype', 'nodeType', 'length', '$$typeof' ];

/* Reading or calling a member that is not there is an error. */
function strict(name, object) {
	return new Proxy(object, {
		get(target, key) {
			if (key in target || typeof key === 'symbol' || looked_up.includes(key))
				return target[key];
			throw new StandInError(name + '.' + key + ' is not offered');
		}
	});
}

bench.refusals = [];
bench.unhandled = [];
window.addEventListener('unhandledrejection', ev => bench.unhandled.push(String(ev.reason?.message ?? ev.reason)));
window.addEventListener('error', ev => bench.unhandled.push(ev.message));

/* ---- texts ---- */

const html_entities = { '&': '&#38;', '<': '&#60;', '>': '&#62;', '"': '&#34;', "'": '&#39;' };

function escape_html(text) {
	return String(text).replace(/[&<>"']/g, c => html_entities[c]);
}

function duration(seconds) {
	const s = Math.floor(seconds), d = Math.floor(s / 86400);
	return (d ? d + 'd ' : '') + Math.floor(s / 3600) % 24 + 'h ' + Math.floor(s / 60) % 60 + 'm ' + s % 60 + 's';
}

Object.defineProperty(String.prototype, 'format', { value: function(...args) {
	let next = 0;
	return this.replace(/%(0?\d+)?(\.\d+)?(.)/g, (whole, width, precision, kind) => {
		if (kind === '%')
			return '%';
		const value = next < args.length ? args[next++] : args[0];
		let text;
		switch (kind) {
		case 's': text = String(value); break;
		case 'd': text = String(Math.floor(Number(value)) || 0); break;
		case 'f': text = Number(value).toFixed(precision ? Number(precision.slice(1)) : 6); break;
		case 'x': text = Number(value).toString(16); break;
		case 'h': text = escape_html(value); break;
		case 't': text = duration(Number(value)); break;
		default: throw new StandInError('format %' + kind + ' is not offered');
		}
		return width ? text.padStart(Number(width), width[0] === '0' ? '0' : ' ') : text;
	});
} });

window._ = function(text, context) {
	const plain = String(text).replace(/\s+/g, ' ').trim();
	return bench.catalogue[context == null ? plain : plain + '\u0001' + context] ?? plain;
};

window.N_ = function(count, one, many) {
	const translated = bench.catalogue[one + '\u0002' + many];
	return translated ? translated[count === 1 ? 0 : 1] : count === 1 ? one : many;
};

/* ---- nodes ---- */

const dom = {
	elem: e => e instanceof Node,

	attr(node, attributes) {
		for (const [ key, value ] of Object.entries(attributes)) {
			if (value == null)
				continue;
			if (typeof value === 'function')
				node.addEventListener(key, value);
			else if (typeof value === 'object')
				node.setAttribute(key, JSON.stringify(value));
			else
				node.setAttribute(key, value);
		}
	},

	append(node, children) {
		if (Array.isArray(children)) {
			for (const child of children)
				node.appendChild(child instanceof Node ? child : document.createTextNode(child));
		}
		else if (children instanceof Node) {
			node.appendChild(children);
		}
		else if (children != null) {
			node.innerHTML = String(children);
		}
		return node;
	},

	content(node, children) {
		node.replaceChildren();
		return dom.append(node, children);
	},

	create(tag, attributes, children) {
		if (Array.isArray(tag))
			return dom.append(document.createDocumentFragment(), tag.concat(attributes ?? []));
		if (typeof tag !== 'string' || tag.startsWith('<'))
			throw new StandInError('E() with markup is not offered');
		const node = document.createElement(tag);
		const plain = attributes != null && !Array.isArray(attributes) && !(attributes instanceof Node) &&
			typeof attributes === 'object';
		if (plain)
			dom.attr(node, attributes);
		return dom.append(node, plain || children !== undefined ? children : attributes);
	}
};

window.E = (...args) => dom.create(...args);

/* ---- classes ---- */

class BaseClass {
	constructor(...args) {
		if (typeof this.__init__ === 'function')
			this.__init__(...args);
	}

	super(name, args) {
		for (let proto = Object.getPrototypeOf(this); proto; proto = Object.getPrototypeOf(proto)) {
			if (Object.hasOwn(proto, name)) {
				const inherited = Object.getPrototypeOf(proto)[name];
				return inherited?.apply(this, args ?? []);
			}
		}
		return null;
	}

	static extend(members) {
		const derived = class extends this {};
		for (const [ key, value ] of Object.entries(members))
			Object.defineProperty(derived.prototype, key, { value, writable: true, configurable: true });
		return derived;
	}
}

/* ---- remote procedures ---- */

class RPCError extends Error {
	constructor(message) {
		super(message + '\n  at ' + location.pathname);
		this.name = 'RPCError';
	}
}

const declared_keys = [ 'object', 'method', 'params', 'expect', 'filter', 'reject', 'nobatch' ];
let next_id = 1, batch = null;

/* What a JSON text keeps of the arguments: undefined is left out, NaN is null. */
function post(requests) {
	const control = new AbortController();
	const timer = setTimeout(() => control.abort(), (L.env.rpctimeout ?? 20) * 1000);
	const url = '/ubus/?' + Date.now();
	return fetch(url, {
		method: 'POST', body: JSON.stringify(requests), signal: control.signal,
		headers: { 'Content-Type': 'application/json' }
	}).then(reply => {
		if (!reply.ok)
			throw new RPCError('RPC call failed with HTTP error ' + reply.status + ': ' + reply.statusText);
		return reply.json();
	}, error => {
		throw new RPCError(control.signal.aborted ? 'XHR request timed out' : 'Network error: ' + error.message);
	}).finally(() => clearTimeout(timer));
}

function flush_batch() {
	const calls = batch;
	batch = null;
	post(calls.map(call => call.request)).then(replies => {
		for (const call of calls)
			call.resolve(replies.find(reply => reply.id === call.request.id));
	}, error => calls.forEach(call => call.reject(error)));
}

function send(request, alone) {
	if (alone)
		return post(request);
	return new Promise((resolve, reject) => {
		if (!batch) {
			batch = [];
			requestAnimationFrame(flush_batch);
		}
		batch.push({ request, resolve, reject });
	});
}

function rpc_request(session, object, method, args) {
	return { jsonrpc: '2.0', id: next_id++, method: 'call', params: [ session, object, method, args ] };
}

let session_is_over = false;

/* A call that was denied: perhaps the session is over. */
function check_session() {
	const session = L.env.sessionid;
	return post(rpc_request(session, 'session', 'access', { scope: 'ubus', object: 'session', 'function': 'access' }))
		.then(reply => {
			if (!reply.error)
				return;
			poll.stop();
			session_is_over = true;
			ui.showModal(_('Session expired'), [
				E('div', { 'class': 'alert-message warning' }, [ _('A new login is required since the authentication session expired.') ]),
				E('div', { 'class': 'right' }, [ E('button', { 'class': 'btn primary' }, [ _('Log in…') ]) ])
			]);
			const error = new Error('Session expired');
			error.name = 'SessionError';
			throw error;
		});
}

function typed(value, like) {
	return like == null || (Array.isArray(like) ? Array.isArray(value) : typeof value === typeof like && value !== null);
}

const rpc = {
	declare(options) {
		for (const key of Object.keys(options)) {
			if (!declared_keys.includes(key))
				throw new StandInError('rpc.declare({ ' + key + ' }) is not offered');
		}
		const names = options.params ?? [];
		if (!Array.isArray(names))
			throw new StandInError('rpc.declare() with params as an object sends nothing on older releases');
		const call_name = options.object + '/' + options.method;

		return function(...args) {
			const params = {};
			names.forEach((name, i) => params[name] = args[i]);
			return send(rpc_request(L.env.sessionid, options.object, options.method, params), options.nobatch === true)
				.then(reply => {
					if (reply.error?.code === -32002)
						return check_session().then(() => reply);
					return reply;
				})
				.then(reply => {
					if (reply.error)
						throw new RPCError('RPC call to %s failed with error %d: %s'
							.format(call_name, reply.error.code, reply.error.message));
					const [ status, data ] = reply.result;
					if (options.reject && status !== 0)
						throw new RPCError('RPC call to %s failed with ubus code %d'.format(call_name, status));
					let result = reply.result.length > 1 ? data : status;
					if (options.expect) {
						const key = Object.keys(options.expect)[0], fallback = options.expect[key];
						result = key === '' ? result : result?.[key];
						if (!typed(result, fallback))
							result = fallback;
					}
					return options.filter ? options.filter(result, args.slice(0, names.length), ...args.slice(names.length)) : result;
				});
		};
	}
};

/* ---- polling ---- */

const poll = {
	queue: [],
	timer: null,
	tick: 0,

	add(fn, seconds) {
		if (typeof fn !== 'function')
			throw new TypeError('Invalid argument to poll.add()');
		if (this.queue.some(entry => entry.fn === fn))
			return false;
		this.queue.push({ fn, every: seconds ?? L.env.pollinterval ?? 5, busy: false });
		if (!this.timer)
			this.start();
		return true;
	},

	remove(fn) {
		const before = this.queue.length;
		this.queue = this.queue.filter(entry => entry.fn !== fn);
		return this.queue.length < before;
	},

	start() {
		if (this.timer || session_is_over)
			return false;
		this.tick = 0;
		this.timer = setInterval(() => this.step(), 1000 / (bench.env.pollspeed ?? 1));
		this.step();
		return true;
	},

	stop() {
		clearInterval(this.timer);
		this.timer = null;
		return true;
	},

	/* A function that throws ends the step, and is taken for busy ever after. */
	step() {
		for (const entry of this.queue) {
			if (this.tick % entry.every !== 0 || entry.busy)
				continue;
			entry.busy = true;
			entry.fn().finally(() => entry.busy = false);
		}
		this.tick++;
	}
};

/* ---- user interface ---- */

let modal = null;

document.addEventListener('keydown', ev => {
	if (ev.key === 'Escape' && document.body.classList.contains('modal-overlay-active'))
		modal.querySelector('.button-row > button, .right > button')?.click();
});

const ui = {
	showModal(title, children, ...classes) {
		modal ??= document.body.appendChild(E('div', { 'id': 'modal_overlay', 'tabindex': -1 },
			E('div', { 'class': 'modal', 'role': 'dialog', 'aria-modal': true })));
		const dialogue = modal.firstElementChild;
		for (const name of [ ...dialogue.attributes ].map(a => a.name)) {
			if (![ 'role', 'aria-modal' ].includes(name))
				dialogue.removeAttribute(name);
		}
		dialogue.className = [ 'modal', ...classes ].join(' ');
		dom.content(dialogue, E('h4', {}, title));
		dom.append(dialogue, children);
		document.body.classList.add('modal-overlay-active');
		modal.scrollTop = 0;
		modal.focus();
		return dialogue;
	},

	/* The nodes stay. */
	hideModal() {
		document.body.classList.remove('modal-overlay-active');
		if (modal?.contains(document.activeElement))
			document.activeElement.blur();
	},

	addNotification(title, children, ...classes) {
		const node = E('div', { 'class': [ 'alert-message', 'fade-in', ...classes ].join(' ') }, []);
		if (title != null)
			dom.append(node, E('h4', {}, title));
		dom.append(node, children);
		node.appendChild(E('button', { 'class': 'btn', 'click': () => node.remove() }, [ _('Dismiss') ]));
		document.getElementById('maincontent').prepend(node);
		return node;
	},

	createHandlerFn(context, fn, ...args) {
		const handler = typeof fn === 'string' ? context[fn] : fn;
		if (typeof handler !== 'function')
			return null;
		return function(ev) {
			const button = ev.currentTarget;
			button.classList.add('spinning');
			button.disabled = true;
			button.blur();
			Promise.resolve(handler.call(context, ...args, ev)).finally(() => {
				button.classList.remove('spinning');
				button.disabled = false;
			});
		};
	}
};

/* ---- views ---- */

const View = BaseClass.extend({
	__init__() {
		const view = document.getElementById('view');
		Promise.resolve(this.load())
			.then(data => this.render(data))
			.then(nodes => {
				dom.content(view, nodes);
				dom.append(view, this.addFooter());
			})
			.catch(error => {
				ui.addNotification(null, [ E('p', {}, [ error.name + ': ' + error.message ]) ], 'danger');
				bench.failure = error.message;
			});
	},
	load() {},
	render() {},
	handleSaveApply() {},
	handleSave() {},
	handleReset() {},
	addFooter() {
		const buttons = [ 'handleSaveApply', 'handleSave', 'handleReset' ].filter(name => this[name] !== null);
		if (buttons.length === 0)
			return [];
		return E('div', { 'class': 'cbi-page-actions' }, buttons.map(name => E('button', { 'class': 'btn' }, [ name ])));
	}
});

/* ---- the framework's object, and the loader ---- */

const L = {
	env: strict('L.env', Object.assign({ rpctimeout: null, pollinterval: null }, bench.env)),
	bind: (fn, self, ...args) => fn.bind(self, ...args),
	resolveDefault: (value, fallback) => Promise.resolve(value).catch(() => fallback),
	toArray: value => value == null ? [] : Array.isArray(value) ? value : [ value ],
	isObject: value => value !== null && typeof value === 'object',
	naturalCompare: new Intl.Collator(undefined, { numeric: true }).compare,
	url: (...parts) => '/cgi-bin/luci/' + parts.join('/'),
	resource: (...parts) => '/luci-static/resources/' + parts.join('/'),
	hasViewPermission: () => bench.readonly === null ? null : !bench.readonly
};
window.L = strict('L', L);

const built_in = {
	baseclass: BaseClass,
	rpc: strict('rpc', rpc),
	poll: strict('poll', { add: poll.add.bind(poll), remove: poll.remove.bind(poll), start: poll.start.bind(poll),
		stop: poll.stop.bind(poll) }),
	dom: strict('dom', dom),
	ui: strict('ui', ui),
	view: View
};
const loaded = {};

/* The leading string literals of a file; comments may stand between them. */
function directives(source) {
	const found = [];
	const literal = /\s*(?:\/\*[\s\S]*?\*\/\s*|\/\/[^\n]*\n\s*)*(["'])((?:(?!\1)[^\\\n]|\\.)*)\1\s*;?/y;
	for (let match; (match = literal.exec(source));) {
		if (match[2] !== 'use strict' && !match[2].startsWith('require '))
			break;
		found.push(match[2]);
	}
	return found;
}

function required(directive) {
	const [ , name, alias ] = /^require\s+(\S+)(?:\s+as\s+([a-zA-Z_]\S*))?$/.exec(directive) ?? [];
	if (!name)
		throw new StandInError("no such directive: '" + directive + "'");
	return { name, parameter: alias ?? name.replace(/[^a-zA-Z0-9_]/g, '_') };
}

async function compile(name) {
	const path = L.resource(name.replaceAll('.', '/') + '.js');
	const reply = await fetch(path);
	if (!reply.ok)
		throw new StandInError(name + ': HTTP ' + reply.status + ' for ' + path);
	const source = await reply.text();
	const needs = directives(source).filter(text => text !== 'use strict').map(required);
	const instances = await Promise.all(needs.map(need => require_class(need.name)));
	const factory = new Function(...needs.map(need => need.parameter), source + '\n//# sourceURL=' + path);
	const made = factory.apply(window, instances);
	if (typeof made !== 'function' || !(made.prototype instanceof BaseClass))
		throw new StandInError(name + ' does not return a class');
	return new made();
}

function require_class(name) {
	if (Object.hasOwn(built_in, name))
		return built_in[name];
	if (!name.includes('.'))
		throw new StandInError("'require " + name + "' is not offered");
	return loaded[name] ??= compile(name);
}

bench.framework = { poll, require_class };

document.addEventListener('DOMContentLoaded', () => {
	if (bench.view)
		require_class(bench.view).catch(error => {
			ui.addNotification(null, [ E('p', {}, [ error.name + ': ' + error.message ]) ], 'danger');
			bench.failure = error.message;
		});
});

})();
