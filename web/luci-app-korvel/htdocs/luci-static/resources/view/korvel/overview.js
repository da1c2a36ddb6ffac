'use strict';
'require view';
'require dom';
'require poll';
'require ui';
'require view.korvel.bus as bus';
'require view.korvel.dialogue as dialogue';
'require view.korvel.trial as trial';
'require view.korvel.wan as wan';

const SECONDS_BETWEEN = 5;
const CHANGES_SHOWN = 5;

const captions = [ _('Name'), _('Connection'), _('Ports'), _('State'), _('IPv4'), _('IPv6') ];

/* A line of a cell: text, or [ class, text ] for a badge. */
function line(content) {
	return E('div', {}, [ Array.isArray(content) ? E('span', { 'class': 'label ' + content[0] }, [ content[1] ]) : content ]);
}

/* Fills a node with lines unless it has just these: what does not change keeps focus and selection. */
function fill(node, lines) {
	const shown = lines.filter(content => content !== '');
	const key = JSON.stringify(shown);
	if (node.korvel_key === key)
		return;
	node.korvel_key = key;
	dom.content(node, shown.map(line));
}

function labelled(label, value) {
	return value ? label + ' ' + value : '';
}

function link_state(label, up) {
	return up ? [ 'success', _('%s: up').format(label) ] : [ 'warning', _('%s: down').format(label) ];
}

function state_lines(entry) {
	if (wan.is_management(entry))
		return [ '–' ];
	if (entry.wanMode === wan.BRIDGED)
		return [ [ 'notice', _('Bridged') ] ];
	return [
		wan.has_ipv4(entry) ? link_state('IPv4', entry.status) : '',
		wan.has_ipv6(entry) ? link_state('IPv6', entry.statusV6) : '',
		entry.status || entry.statusV6 ? _('for %t').format(entry.uptime) : ''
	];
}

function ipv4_lines(entry) {
	if (!wan.has_ipv4(entry))
		return [ '–' ];
	return [
		entry.ip ? entry.ip + (entry.mask ? ' / ' + entry.mask : '') : _('no address'),
		entry.ipSec,
		labelled(_('Gateway:'), entry.gateway),
		labelled(_('DNS:'), [ entry.priDns, entry.secDns ].filter(server => server).join(', '))
	];
}

function ipv6_lines(entry) {
	if (!wan.has_ipv6(entry))
		return [ '–' ];
	return [
		entry.ipv6Addr || _('no address'),
		entry.ipv6SecAddr,
		labelled(_('Prefix:'), entry.ipv6Prefix),
		labelled(_('Gateway:'), entry.ipv6Gateway),
		labelled(_('DNS:'), [ entry.priDnsV6, entry.secDnsV6 ].filter(server => server).join(', '))
	];
}

/* What the cells of a WAN show, in the order of the captions. */
function cells(entry, ports) {
	const bound = wan.bound_ports(entry, ports);
	return [
		[ entry.wanName, [ entry.device, entry.mac ].filter(text => text).join(' · ') ],
		[ wan.mode_words(entry), wan.vlan_words(entry), wan.service_words(entry) ],
		[ bound.length ? bound.join(', ') : '–' ],
		state_lines(entry),
		ipv4_lines(entry),
		ipv6_lines(entry)
	];
}

const actions = {
	created: _('added'),
	changed: _('changed'),
	deleted: _('deleted'),
	cancelled: _('taken back'),
	refused: _('refused'),
	failed: _('failed'),
	lost: _('lost')
};

/* What became of a change: its end, and of one that came to nothing the daemon's reason. `wans` to name the one in its way. */
function outcome_lines(change, wans) {
	const other = wans.filter(entry => entry.wanId === change.other)[0];
	return [
		actions[change.action] || String(change.action),
		change.result === 'OK' ? '' : [ change.result, change.file ].filter(text => text).join(': '),
		change.other ? _('in the way: %s').format(other ? other.wanName : _('WAN %d').format(change.other)) : ''
	];
}

function local_time(text) {
	const moment = new Date(String(text)[10] === 'T' ? text : NaN);
	return isNaN(moment.getTime()) ? String(text) : moment.toLocaleString();
}

function make_table(id, titles, with_actions) {
	const head = titles.map(title => E('th', { 'class': 'th', 'scope': 'col' }, [ title ]));
	if (with_actions)
		head.push(E('th', { 'class': 'th cbi-section-actions', 'scope': 'col' }, [ _('Actions') ]));
	return E('table', { 'class': 'table cbi-section-table', 'id': id }, [
		E('tr', { 'class': 'tr cbi-section-table-titles' }, head)
	]);
}

/*
 * The rows of a table, one for each item by its key. An item's row stays the same node as long as the item is there, and its
 * buttons with it, which an item may be without.
 */
class keyed_rows {
	constructor(table, titles, make_buttons) {
		this.table = table;
		this.titles = titles;
		this.make_buttons = make_buttons;
		this.rows = {};
		this.placeholder = E('tr', { 'class': 'tr placeholder' }, [
			E('td', { 'class': 'td', 'colspan': titles.length + (make_buttons ? 1 : 0) }, [ E('em', {}, []) ])
		]);
	}

	/* `items`: { key, cells, item, fixed (has no buttons) }; `empty`: what to say when there is none. */
	update(items, empty) {
		const keys = items.map(item => item.key);
		const gone = Object.keys(this.rows).filter(key => keys.indexOf(key) < 0);
		let lost_focus = false;
		gone.forEach(key => {
			lost_focus = lost_focus || this.rows[key].node.contains(document.activeElement);
			this.rows[key].node.remove();
			delete this.rows[key];
		});
		let before = this.table.firstElementChild;
		items.forEach((item, i) => {
			const row = this.rows[item.key] || (this.rows[item.key] = this.make_row());
			row.item = item.item;
			item.cells.forEach((lines, column) => fill(row.cells[column], lines));
			row.buttons.classList.toggle('hidden', item.fixed === true);
			this.name_buttons(row);
			row.node.className = 'tr cbi-section-table-row cbi-rowstyle-' + (i % 2 + 1);
			if (before.nextElementSibling !== row.node)
				before.after(row.node);
			before = row.node;
		});
		this.show_placeholder(items.length === 0 ? empty : '');
		return lost_focus;
	}

	make_row() {
		const row = { cells: this.titles.map(() => E('div', {})) };
		row.buttons = E('div', {}, this.make_buttons ? this.make_buttons(row) : []);
		const own = this.make_buttons ? [ E('td', { 'class': 'td cbi-section-actions' }, [ row.buttons ]) ] : [];
		row.node = E('tr', {}, row.cells.map((cell, i) => E('td', { 'class': 'td', 'data-title': this.titles[i] }, [ cell ])).concat(own));
		return row;
	}

	/* All buttons of a kind read the same; what they are for is in their names. */
	name_buttons(row) {
		row.node.querySelectorAll('button').forEach(button => {
			const name = button.textContent + ' ' + row.item.wanName;
			if (button.getAttribute('aria-label') !== name)
				button.setAttribute('aria-label', name);
		});
	}

	show_placeholder(text) {
		if (text === '') {
			this.placeholder.remove();
			return;
		}
		const node = this.placeholder.querySelector('em');
		if (node.textContent !== text)
			node.textContent = text;
		if (!this.placeholder.isConnected)
			this.table.appendChild(this.placeholder);
	}
}

function button(style, title, handler) {
	return E('button', { 'type': 'button', 'class': 'btn cbi-button cbi-button-' + style, 'click': handler }, [ title ]);
}

function focus_heading() {
	document.getElementById('korvel-heading').focus();
}

return view.extend({
	handleSaveApply: null,
	handleSave: null,
	handleReset: null,

	/* Nothing is fetched before the first polling, which comes at once: a slow bus leaves no empty page. */
	render() {
		this.may_write = L.hasViewPermission() === true;
		this.wans = [];
		this.pending = [];
		this.outcomes = [];
		this.ports = null;
		this.seen = null;
		this.trial = {};
		this.unsure = null;
		this.banner = this.may_write
			? new trial.banner(() => this.end_trial(bus.confirm_trial(), _('The change stays.')),
				() => this.end_trial(bus.take_back_trial(), _('The change on trial was taken back.')))
			: new trial.banner();

		const page = E('div', {}, [
			E('h2', {}, [ _('WAN Connections') ]),
			E('div', { 'class': 'cbi-map-descr' }, [ _('The connections of this gateway to its provider.'),
				this.may_write ? '' : ' ' + _('You may look at them but not change them.') ]),
			this.banner.node,
			this.notice = E('div', { 'role': 'status', 'id': 'korvel-notice' }),
			this.message = E('div', { 'role': 'status', 'id': 'korvel-message' }),
			this.connections(),
			this.waiting(),
			this.last()
		]);
		poll.add(() => this.refresh(), SECONDS_BETWEEN);
		return page;
	},

	connections() {
		const table = make_table('korvel-wans', captions, this.may_write);
		table.setAttribute('aria-label', _('Connections'));
		this.rows = new keyed_rows(table, captions, this.may_write ? row => this.row_buttons(row) : null);
		this.rows.update([], _('Collecting data…'));
		this.add_button = button('add', _('Add connection'), ui.createHandlerFn(this, ev => this.open_editor(undefined, this.add_button)));
		return E('div', { 'class': 'cbi-section' }, [
			E('h3', { 'tabindex': '-1', 'id': 'korvel-heading' }, [ _('Connections') ]),
			table,
			this.may_write ? E('div', { 'class': 'cbi-section-create' }, [ this.add_button ]) : ''
		]);
	},

	row_buttons(row) {
		const edit = button('edit', _('Edit'), ui.createHandlerFn(this, () => this.open_editor(row.item.wanId, edit)));
		const remove = button('remove', _('Delete'), ui.createHandlerFn(this, () => this.ask_deletion(row.item, remove)));
		return [ edit, ' ', remove ];
	},

	waiting() {
		const titles = [ _('Name'), _('Applied in'), _('Changes') ];
		const table = make_table('korvel-waiting', titles, this.may_write);
		table.setAttribute('aria-label', _('Waiting changes'));
		this.waiting_rows = new keyed_rows(table, titles, this.may_write ? row => [
			button('negative', _('Take back'), ui.createHandlerFn(this, () => this.take_back(row.item)))
		] : null);
		this.waiting_section = E('div', { 'class': 'cbi-section hidden' }, [ E('h3', {}, [ _('Waiting changes') ]), table ]);
		return this.waiting_section;
	},

	last() {
		const titles = [ _('Name'), _('Change'), _('When') ];
		const table = make_table('korvel-last', titles, false);
		table.setAttribute('aria-label', _('Last changes'));
		this.last_rows = new keyed_rows(table, titles, null);
		this.untold = E('p', { 'class': 'cbi-section-descr hidden', 'id': 'korvel-untold' },
			[ _('This daemon does not tell which changes wait and what became of the last ones.') ]);
		this.last_section = E('div', { 'class': 'cbi-section hidden' }, [ E('h3', {}, [ _('Last changes') ]), table ]);
		return E('div', {}, [ this.last_section, this.untold ]);
	},

	/* ---- fetching and showing ---- */

	/* Never fails: what goes wrong is shown. */
	refresh() {
		return Promise.all([ this.refresh_wans(), this.refresh_state(), this.refresh_trial() ]);
	},

	refresh_wans() {
		const board = this.ports ? Promise.resolve() : bus.board().then(found => this.board = found);
		return Promise.all([ bus.wans(this.may_write), board ]).then(replies => {
			this.show_wans(replies[0]);
			this.seen = Date.now();
			this.show_notice('');
		}).catch(error => this.show_failure(error));
	},

	show_wans(wans) {
		this.wans = wans;
		if (this.board || !this.ports)
			this.ports = wan.board_ports(this.board, wans);
		const lost_focus = this.rows.update(wans.map(entry => ({ key: String(entry.wanId), item: entry,
			cells: cells(entry, this.ports), fixed: wan.is_management(entry) })), _('There are no connections yet.'));
		if (lost_focus)
			focus_heading();
		this.show_outcomes();
	},

	/* The rows stay; the page says how old they are. */
	show_failure(error) {
		const age = this.seen === null ? '' : ' ' + _('What is shown is %d seconds old.').format(Math.round((Date.now() - this.seen) / 1000));
		this.show_notice(error.message + age);
		if (this.seen === null)
			this.rows.update([], _('Nothing is known of the connections.'));
	},

	show_notice(text) {
		if (this.notice.textContent === text)
			return;
		dom.content(this.notice, text === '' ? [] : [ E('div', { 'class': 'alert-message warning' }, [ text ]) ]);
	},

	refresh_state() {
		return bus.state().then(state => {
			this.untold.classList.toggle('hidden', state !== null);
			this.show_waiting(state ? state.pending : []);
			this.outcomes = state ? state.last : [];
			this.show_outcomes();
		}).catch(() => {
			/* The list's failure has the same cause and is shown. */
		});
	},

	refresh_trial() {
		return bus.trial().then(state => {
			this.trial = state;
			if (this.banner.update(state, this.name_on_trial(state)))
				focus_heading();
			/* A dialogue that did not know whether its change was made has its answer, and is in the way of what is said of it. */
			if (this.unsure && state.made && state.wanId === this.unsure.id && state.began !== this.unsure.before) {
				this.unsure.close();
				this.unsure = null;
			}
		}).catch(() => {
			/* As above. The time that is left goes by meanwhile. */
		});
	},

	/* The name of the WAN whose change is on trial; '' when that is not known. */
	name_on_trial(state) {
		if (!state.made)
			return '';
		const entry = this.wans.filter(candidate => candidate.wanId === state.wanId)[0];
		return state.made.wanName || (entry ? entry.wanName : _('WAN %d').format(state.wanId));
	},

	show_waiting(pending) {
		this.pending = pending;
		this.waiting_section.classList.toggle('hidden', pending.length === 0);
		/* While one is applied, another of the same WAN may wait. */
		const key = change => change.wanId + (change.applying ? ' applying' : '');
		const lost_focus = this.waiting_rows.update(pending.map(change => ({ key: key(change), item: change, cells: [
			[ change.wanName ],
			[ change.applying ? _('is being applied') : N_(change.seconds, '%d second', '%d seconds').format(change.seconds) ],
			[ dialogue.changes_words(change) ]
		], fixed: change.applying === true })), '');
		if (lost_focus)
			focus_heading();
	},

	show_outcomes() {
		const shown = this.outcomes.slice(-CHANGES_SHOWN).reverse();
		this.last_section.classList.toggle('hidden', shown.length === 0);
		this.last_rows.update(shown.map((change, i) => ({ key: String(i), item: change, cells: [
			[ change.wanName || '–' ],
			outcome_lines(change, this.wans),
			[ local_time(change.when) ]
		] })), '');
	},

	pending_of(id) {
		return this.pending.filter(change => change.wanId === id);
	},

	say(text) {
		dom.content(this.message, text === '' ? [] : [ E('div', { 'class': 'alert-message success' }, [ text ]) ]);
	},

	warn(text) {
		dom.content(this.message, [ E('div', { 'class': 'alert-message danger' }, [ text ]) ]);
	},

	/* ---- changing ---- */

	after_change(text) {
		if (text !== '')
			this.say(text);
		return this.refresh();
	},

	/* A WAN as it is now: { wan, stored, wans }, or null when it is gone. */
	reload(id) {
		return Promise.all([ bus.wans(this.may_write), bus.stored(id) ]).then(replies => {
			const found = replies[0].filter(entry => entry.wanId === id)[0];
			return found ? { wan: found, stored: replies[1], wans: replies[0] } : null;
		});
	},

	/* What both dialogues ask for, beside the WAN and its ports. */
	dialogue_needs(id, opener) {
		const before = this.trial.began;
		return {
			pending: id === undefined ? [] : this.pending_of(id),
			trial: this.trial,
			/* The WAN of a button that opened a dialogue may have gone, and its row with it. */
			give_focus_back: () => {
				opener.focus();
				if (document.activeElement !== opener)
					focus_heading();
			},
			done: text => this.after_change(text),
			unsure: close => this.unsure = { id, before, close }
		};
	},

	ask_deletion(entry, opener) {
		return this.refresh_trial().then(() => dialogue.remove(Object.assign(this.dialogue_needs(entry.wanId, opener),
			{ wan: entry, ports: this.ports || [] })));
	},

	open_editor(id, opener) {
		const current = id === undefined ? bus.wans(this.may_write).then(wans => ({ wans })) : this.reload(id);
		return Promise.all([ current, this.refresh_trial() ]).then(replies => {
			const found = replies[0];
			if (!found)
				throw new Error(_('The connection is gone.'));
			dialogue.edit(Object.assign(found, this.dialogue_needs(id, opener), {
				ports: this.ports || wan.board_ports(this.board, found.wans),
				reload: wanted => this.reload(wanted)
			}));
		}).catch(error => this.warn(error.message));
	},

	end_trial(ending, text) {
		return ending.then(() => this.after_change(text)).then(() => {
			if (document.activeElement === document.body) /* the button is gone */
				focus_heading();
		}).catch(error => {
			this.warn(error.message);
			return this.refresh();
		});
	},

	take_back(change) {
		return bus.cancel(change.wanId)
			.then(() => this.after_change(_('The change of %s was taken back.').format(change.wanName)))
			.catch(error => this.warn(error.message));
	}
});
