'use strict';
'require baseclass';
'require rpc';
'require view.korvel.wan as wan';

/*
 * What the page asks of the gateway. Everything that fails, fails with an Error whose message is a sentence for people;
 * `absent` tells that an object is not on the bus.
 */

const BUS_NOT_FOUND = 4, BUS_TIMEOUT = 7;

/* Alone: a slow one delays no others, and one that is not answered takes none with it. */
const call_wans = rpc.declare({ object: 'luci.korvel', method: 'wans', nobatch: true });
const call_stored = rpc.declare({ object: 'luci.korvel', method: 'stored', params: [ 'wanId' ], expect: { '': {} } });
const call_all = rpc.declare({ object: 'korvel', method: 'all', expect: { '': {} }, nobatch: true });
const call_get = rpc.declare({ object: 'korvel', method: 'get', params: [ 'wanId' ], expect: { '': {} } });
const call_del = rpc.declare({ object: 'korvel', method: 'del', params: [ 'wanId' ], expect: { '': {} }, nobatch: true });
const call_board = rpc.declare({ object: 'boardinfo', method: 'all', expect: { '': {} } });
const call_pending = rpc.declare({ object: 'korvel.state', method: 'pending', expect: { pending: [] } });
const call_last = rpc.declare({ object: 'korvel.state', method: 'last', expect: { last: [] } });
const call_cancel = rpc.declare({ object: 'korvel.state', method: 'cancel', params: [ 'wanId' ], expect: { '': {} }, nobatch: true });

const call_trial = rpc.declare({ object: 'luci.korvel', method: 'trial', nobatch: true });
const call_try_del = rpc.declare({ object: 'luci.korvel', method: 'try_del', params: [ 'seconds', 'wanId' ], nobatch: true });
const call_confirm = rpc.declare({ object: 'luci.korvel', method: 'confirm', nobatch: true });
const call_take_back = rpc.declare({ object: 'luci.korvel', method: 'take_back', nobatch: true });

const wan_arguments = wan.fields.map(field => field.name);
const call_add = rpc.declare({ object: 'korvel', method: 'add', params: wan_arguments, expect: { '': {} }, nobatch: true });
const call_modify = rpc.declare({ object: 'korvel', method: 'modify', params: [ 'wanId' ].concat(wan_arguments, 'wait'),
	expect: { '': {} }, nobatch: true });
const try_arguments = wan_arguments.map(name => name === 'bind' ? 'ports' : name);
const call_try_modify = rpc.declare({ object: 'luci.korvel', method: 'try_modify', params: [ 'seconds', 'wanId' ].concat(try_arguments),
	nobatch: true });

function failure(text, absent, unsure) {
	const error = new Error(text);
	error.absent = absent === true;
	error.unsure = unsure === true;
	return error;
}

const daemon_is_down = () => failure(_('The daemon korvel is not running.'), true);

/* A rejected call in words. Its message carries lines of the call stack behind the first. */
function in_words(error) {
	const message = String(error.message).split('\n')[0];
	if (message.indexOf('error -32000') >= 0)
		return failure(message, true);
	if (message.indexOf('error -32002') >= 0)
		return failure(_('This session may not do that.'));
	if (message.indexOf('timed out') >= 0)
		return failure(_('The gateway did not answer in time.'), false, true);
	if (error.name === 'SessionError')
		return failure(_('The session has ended.'));
	return failure(_('The gateway cannot be reached.') + ' (' + message + ')', false, true);
}

function ask(call, args) {
	return call.apply(null, args || []).catch(error => Promise.reject(in_words(error)));
}

/* A sentence for a bus status. */
function unread(status) {
	if (status === BUS_NOT_FOUND)
		return daemon_is_down();
	if (status === BUS_TIMEOUT)
		return failure(_('The daemon korvel did not answer in time.'));
	return failure(_('The daemon korvel could not read its configuration.'));
}

/* What the page keeps of a WAN: not the password, only whether there is one. */
function without_secret(entry) {
	const kept = Object.assign({ pppPwdSet: entry.pppPwd !== undefined && entry.pppPwd !== '' }, entry);
	delete kept.pppPwd;
	return kept;
}

function as_list(wans) {
	return Object.keys(wans).map(id => wans[id])
		.filter(entry => L.isObject(entry) && typeof entry.wanName === 'string')
		.map(without_secret)
		.sort((one, other) => one.wanId - other.wanId);
}

const refusals = {
	'-2': _('Its VLAN is in use.'),
	'-3': _('One of its ports is bound to another connection.'),
	'-4': _('A bridged connection for other purposes needs a port.')
};

/* The reply of an operation; refusals too come with bus status 0. */
function done(reply) {
	if (reply.status === 0)
		return reply;
	const said = typeof reply.info === 'string' ? ' (' + reply.info + ')' : '';
	throw failure((refusals[reply.status] || _('The daemon refused the request.')) + said);
}

function operate(call, args) {
	return ask(call, args).then(done, error => Promise.reject(error.absent ? daemon_is_down() : error));
}

/* What korvelctl ends with, as the replies of operations have it. */
const same_as_reply = { '5': -2, '6': -3, '7': -4 };
const NO_SUCH = 4, NO_DAEMON = 9, NO_ANSWER = 10;

/* A reply of korvelctl. `no_such`: what it means there that it finds nothing. */
function carried_out(reply, no_such) {
	if (!L.isObject(reply) || typeof reply.ok !== 'boolean')
		throw reply === BUS_TIMEOUT ? failure(_('The gateway did not answer in time.'), false, true)
			: failure(_('The gateway lacks what a way back needs.'));
	if (reply.ok)
		return reply;
	if (reply.exit === NO_SUCH)
		throw failure(no_such);
	if (reply.exit === NO_DAEMON)
		throw daemon_is_down();
	throw failure((refusals[same_as_reply[reply.exit]] || _('The change was refused.')) + ' (' + reply.message + ')', false,
		reply.exit === NO_ANSWER);
}

function carry_out(call, args, no_such) {
	return ask(call, args).then(reply => carried_out(reply, no_such), error => {
		throw error.absent ? failure(_('The gateway lacks what a way back needs.')) : error;
	});
}

return baseclass.extend({
	/* The WANs in the order of their identifiers. Who may change them may also read them where the package's script is missing. */
	wans(may_write) {
		return ask(call_wans).then(reply => {
			if (L.isObject(reply) && L.isObject(reply.wans))
				return as_list(reply.wans);
			throw unread(L.isObject(reply) ? reply.failure : reply);
		}, error => {
			if (!error.absent)
				throw error;
			if (!may_write)
				throw failure(_('The list of connections is not available: the gateway lacks luci.korvel.'));
			return this.all();
		});
	},

	all() {
		return ask(call_all).then(reply => {
			if (typeof reply.status === 'number')
				throw unread(0);
			return as_list(reply);
		}, error => Promise.reject(error.absent ? daemon_is_down() : error));
	},

	/* What the configuration says of a WAN; nothing where the package's script is missing. */
	stored(id) {
		return ask(call_stored, [ id ]).catch(error => {
			if (error.absent)
				return {};
			throw error;
		});
	},

	password(id) {
		return ask(call_get, [ id ]).then(reply => {
			if (typeof reply.pppPwd === 'string')
				return reply.pppPwd;
			throw failure(_('The connection is gone.'));
		});
	},

	/* { lan: { numOfPorts }, … }, or null where the board is not described. */
	board() {
		return ask(call_board).catch(() => null);
	},

	/* Changes that wait, and what became of the last ones; null for a daemon that does not tell. */
	state() {
		return Promise.all([ ask(call_pending), ask(call_last) ]).then(replies => ({
			pending: replies[0].filter(L.isObject),
			last: replies[1].filter(L.isObject)
		}), error => {
			if (error.absent)
				return null;
			throw error;
		});
	},

	add(record) {
		return operate(call_add, wan_arguments.map(name => record[name]));
	},

	/* `wait` in seconds, 0 for at once. Arguments that are undefined are not sent, which keeps them only in a change that waits. */
	modify(id, record, wait) {
		return operate(call_modify, [ id ].concat(wan_arguments.map(name => record[name]), wait > 0 ? wait : undefined));
	},

	del(id) {
		return operate(call_del, [ id ]);
	},

	/*
	 * `modify` says OK also when nothing could be written; the daemon tells afterwards. Fails when the last that became of
	 * the WAN's changes is that nothing was changed.
	 */
	confirm_change(id) {
		return this.state().then(state => {
			const own = state ? state.last.filter(change => change.wanId === id) : [];
			const newest = own[own.length - 1];
			if (newest && [ 'refused', 'failed', 'lost' ].indexOf(newest.action) >= 0)
				throw failure(_('Nothing was changed: %s').format([ newest.result, newest.file ].filter(text => text).join(', ')));
		});
	},

	cancel(id) {
		return operate(call_cancel, [ id ]);
	},

	/* ---- changes with a way back: taken back after `seconds` unless they are confirmed ---- */

	/*
	 * { offered, waits, undoing, ended, seconds, wanId, began, made }: whether a way back can be had, whether a change is on trial
	 * or being taken back, or how one ended a while ago ('kept', 'taken back', 'unknown'); of one that began on this page the
	 * seconds that it has left, what tells it from others, and korvelctl's reply. Nothing where the package's script is missing.
	 */
	trial() {
		return ask(call_trial).then(reply => L.isObject(reply) ? reply : {}, error => {
			if (error.absent)
				return {};
			throw error;
		});
	},

	/* `changes` as trial_changes() makes them. */
	try_modify(seconds, id, changes) {
		return carry_out(call_try_modify, [ seconds, id ].concat(try_arguments.map(name => changes[name])), _('The connection is gone.'));
	},

	try_del(seconds, id) {
		return carry_out(call_try_del, [ seconds, id ], _('The connection is gone.'));
	},

	confirm_trial() {
		return carry_out(call_confirm, [], _('No change is on trial any more.'));
	},

	take_back_trial() {
		return carry_out(call_take_back, [], _('No change is on trial any more.'));
	}
});
