'use strict';
'require baseclass';
'require dom';
'require ui';
'require view.korvel.bus as bus';
'require view.korvel.trial as trial';
'require view.korvel.wan as wan';

/*
 * The dialogues: adding and editing a WAN, deleting one. Fields are plain elements with the theme's classes, since each has to
 * have a name for screen readers, tell what is wrong with it in words that belong to it, and keep its value's type.
 */

const tabs = [
	[ 'general', _('General') ],
	[ 'ipv4', _('IPv4') ],
	[ 'ipv6', _('IPv6') ],
	[ 'pppoe', _('PPPoE') ],
	[ 'ports', _('Ports and services') ]
];

const LONGEST_WAIT = 86400;
const SHORTEST_TRIAL = 5, USUAL_TRIAL = 90, LONGEST_TRIAL = 86400;
const PREFIX = 'korvel-';
const focusable = 'button:not([disabled]), input:not([disabled]), select:not([disabled]), a[href]:not([tabindex="-1"])';

/*
 * Shows a dialogue that has a name, holds the focus, and has it given back. Returns the function that closes it, and does
 * nothing when it is closed already.
 */
function show_modal(title, name, children, give_focus_back) {
	const node = ui.showModal(title, children, 'cbi-modal');
	node.setAttribute('aria-label', name);
	const hold_focus = ev => {
		if (ev.key !== 'Tab')
			return;
		const stops = Array.from(node.querySelectorAll(focusable)).filter(stop => stop.offsetParent !== null);
		const at = stops.indexOf(document.activeElement);
		const leaves = ev.shiftKey ? at <= 0 : at === stops.length - 1 || at < 0;
		if (leaves && stops.length > 0) {
			ev.preventDefault();
			stops[ev.shiftKey ? stops.length - 1 : 0].focus();
		}
	};
	node.addEventListener('keydown', hold_focus);
	let is_open = true;
	return () => {
		if (!is_open)
			return;
		is_open = false;
		node.removeEventListener('keydown', hold_focus);
		node.removeAttribute('aria-label');
		ui.hideModal();
		dom.content(node, []);
		give_focus_back();
	};
}

function notice(kind, texts) {
	return E('div', { 'class': 'alert-message ' + kind }, texts.map(text => E('p', {}, [ text ])));
}

/* ---- one field: { row, write, read }, `changed` being called at each input ---- */

function help_ids(id, hint) {
	return (hint ? id + '-hint ' : '') + id + '-error';
}

function make_choice(field, id, changed) {
	const select = E('select', { 'id': id, 'class': 'cbi-input-select', 'change': changed },
		field.choices.map(choice => E('option', { 'value': choice[0] }, [ choice[1] ])));
	return { control: select, input: select, read: () => Number(select.value), write: value => {
		/* A value that the list lacks, as of a newer daemon, stays. */
		if (!field.choices.some(choice => choice[0] === value))
			select.appendChild(E('option', { 'value': value }, [ String(value) ]));
		select.value = String(value);
	} };
}

function make_flag(field, id, changed) {
	const box = E('input', { 'id': id, 'type': 'checkbox', 'class': 'cbi-input-checkbox', 'change': changed });
	return { control: box, input: box, read: () => box.checked, write: value => box.checked = value };
}

function make_text(field, id, changed) {
	const input = E('input', { 'id': id, 'class': 'cbi-input-text', 'type': field.secret ? 'password' : 'text',
		'autocomplete': field.secret ? 'new-password' : 'off', 'spellcheck': 'false', 'input': changed,
		'inputmode': field.type === 'number' ? 'numeric' : null });
	if (field.type === 'number')
		return { control: input, input, read: () => wan.parse_number(input.value),
			write: value => input.value = isNaN(value) ? '' : String(value) };
	return { control: input, input, read: () => field.secret || field.tab === 'pppoe' ? input.value : input.value.trim(),
		write: value => input.value = value };
}

/* A box for each port; what `bind` says beyond them stays. */
function make_ports(field, id, changed, ports, others) {
	let rest = '';
	const owner = i => others.filter(other => wan.binds_ports(other) && other.bind[i] === '1')[0];
	const boxes = ports.map(() => E('input', { 'type': 'checkbox', 'class': 'cbi-input-checkbox', 'change': changed }));
	const labels = boxes.map((box, i) => E('div', {}, [ E('label', {}, [
		box, ' ', ports[i].label, ports[i].device ? ' (' + ports[i].device + ')' : '',
		owner(i) ? ' — ' + _('bound to %s').format(owner(i).wanName) : ''
	]) ]));
	const control = E('div', { 'id': id, 'role': 'group', 'tabindex': '-1' },
		labels.length ? labels : [ E('em', {}, [ _('The gateway does not tell its ports.') ]) ]);
	return { control, input: control, read: () => boxes.map(box => box.checked ? '1' : '0').join('') + rest, write: value => {
		boxes.forEach((box, i) => box.checked = value[i] === '1');
		rest = value.slice(ports.length);
	} };
}

function make_field(field, changed, ports, others) {
	const id = PREFIX + field.name;
	const make = field.ports ? make_ports : field.choices ? make_choice : field.type === 'flag' ? make_flag : make_text;
	const part = make(field, id, changed, ports, others);
	const title_id = id + '-title';
	part.input.setAttribute('aria-describedby', help_ids(id, field.hint));
	if (field.ports)
		part.input.setAttribute('aria-labelledby', title_id);
	part.error = E('div', { 'id': id + '-error', 'class': 'cbi-value-description', 'aria-live': 'polite',
		'style': 'color:var(--error-color-high, #b3201b)' });
	part.row = E('div', { 'class': 'cbi-value', 'data-name': field.name }, [
		field.ports ? E('span', { 'class': 'cbi-value-title', 'id': title_id }, [ field.title ])
			: E('label', { 'class': 'cbi-value-title', 'for': id, 'id': title_id }, [ field.title ]),
		E('div', { 'class': 'cbi-value-field' }, [
			part.control,
			field.hint ? E('div', { 'id': id + '-hint', 'class': 'cbi-value-description' }, [ field.hint ]) : '',
			part.error
		])
	]);
	return part;
}

function show_error(part, text) {
	if (part.error.textContent !== text)
		part.error.textContent = text;
	part.input.classList.toggle('cbi-input-invalid', text !== '');
	part.input.setAttribute('aria-invalid', text !== '' ? 'true' : 'false');
}

/*
 * The choice of a way back: { rows, is_chosen(), seconds(), check(), show() }, `changed` being called at each input. It is
 * made beforehand where the user could lose the gateway, and not offered where it cannot be had.
 */
class way_back {
	constructor(entry, offered, changed) {
		this.box = make_field({ name: 'wayBack', type: 'flag', title: _('With a way back'),
			hint: _('The change is made now, and taken back unless you press “Keep” on this page in time.') }, changed, [], []);
		this.time = make_field({ name: 'waySeconds', type: 'number', title: _('Taken back after … seconds'),
			hint: _('Where the gateway’s address changes, open this page at the new one.') }, changed, [], []);
		this.box.write(offered && trial.carries_session(entry));
		this.time.write(USUAL_TRIAL);
		this.rows = offered ? [ this.box.row, this.time.row ] : [];
	}

	is_chosen() {
		return this.box.read();
	}

	seconds() {
		return this.time.read();
	}

	/* What is wrong with the time, or ''. */
	check() {
		const value = this.seconds();
		return !this.is_chosen() || value >= SHORTEST_TRIAL && value <= LONGEST_TRIAL ? ''
			: _('A whole number from %d to %d.').format(SHORTEST_TRIAL, LONGEST_TRIAL);
	}

	show() {
		set_shown(this.time.row, this.is_chosen());
		show_error(this.time, this.check());
	}
}

/* Whether a way back can be had: one change at a time is on trial. */
function can_be_tried(state) {
	return state.offered === true && !state.waits && !state.undoing;
}

/* A way back leads to how all was when the change on trial was made. */
function trial_warning(state) {
	return state.waits || state.undoing
		? _('Another change is on trial. When it is taken back, so is what you do now.') : '';
}

/* ---- adding and editing ---- */

/*
 * `asked`: { wan, stored } for an edit, neither for a new one; wans, ports, pending (changes of this WAN that wait), trial
 * (what the gateway tells of a change on trial), give_focus_back(), done(text), unsure(close): of a change on trial it is not
 * known whether it was made; `close` closes the dialogue.
 */
class editor {
	constructor(asked) {
		this.asked = asked;
		this.edits = asked.wan !== undefined;
		this.others = asked.wans.filter(other => !this.edits || other.wanId !== asked.wan.wanId);
		this.initial = this.edits ? wan.stored_record(asked.wan, asked.stored) : wan.empty_record();
		this.record = !this.edits ? wan.new_record()
			: this.initial.wanMode === wan.BRIDGED ? wan.prepared_for_routing(this.initial) : Object.assign({}, this.initial);
		this.touched = {};
		this.parts = {};
	}

	open() {
		const title = this.edits ? _('Edit connection') : _('Add connection');
		const name = this.edits ? title + ': ' + this.asked.wan.wanName : title;
		this.close = show_modal(title, name, this.nodes(), this.asked.give_focus_back);
		wan.fields.forEach(field => this.parts[field.name].write(this.record[field.name]));
		this.select_tab('general', false);
		this.refresh();
		this.parts.wanMode.input.focus();
	}

	nodes() {
		wan.fields.forEach(field => this.parts[field.name] = make_field(field, () => this.changed(field), this.asked.ports, this.others));
		this.message = E('div', { 'role': 'alert' });
		this.wait = this.make_wait();
		this.way_back = new way_back(this.asked.wan || {}, this.edits && can_be_tried(this.asked.trial), () => this.refresh());
		if (this.edits && this.asked.wan.pppPwdSet)
			this.parts.pppPwd.input.setAttribute('placeholder', _('unchanged'));
		return [
			this.edits ? E('p', {}, [ E('strong', {}, [ this.asked.wan.wanName ]) ]) : '',
			this.warnings(),
			this.tab_list(),
			E('div', {}, tabs.map(tab => this.panel(tab[0]))),
			E('div', {}, this.edits ? this.way_back.rows.concat(this.wait.row) : []),
			this.message,
			E('div', { 'class': 'right button-row' }, [
				E('button', { 'type': 'button', 'class': 'btn cbi-button cbi-button-neutral', 'click': () => this.close() }, [ _('Dismiss') ]),
				' ',
				E('button', { 'type': 'button', 'class': 'btn cbi-button cbi-button-positive important',
					'click': ui.createHandlerFn(this, () => this.save()) }, [ this.edits ? _('Save') : _('Add') ])
			])
		];
	}

	warnings() {
		const texts = [];
		if (this.edits && trial.carries_session(this.asked.wan))
			texts.push(_('You are connected through this connection. A mistake may lock you out.'));
		this.asked.pending.forEach(change => texts.push(change.applying
			? _('A change of this connection is being applied: %s. Save when it is done.').format(changes_words(change))
			: _('A change of this connection waits: %s. It is applied over what you save now.').format(changes_words(change))));
		if (trial_warning(this.asked.trial))
			texts.push(trial_warning(this.asked.trial));
		return texts.length ? notice('warning', texts) : '';
	}

	make_wait() {
		const field = { name: 'wait', type: 'number', title: _('Apply in … seconds'), check: null,
			hint: _('0 applies at once. A change that waits can be taken back.') };
		const part = make_field(field, () => this.refresh(), [], []);
		part.write(0);
		return part;
	}

	check_wait() {
		if (this.way_back.is_chosen())
			return '';
		const value = this.wait.read();
		return value >= 0 && value <= LONGEST_WAIT ? '' : _('A whole number from %d to %d.').format(0, LONGEST_WAIT);
	}

	/* ---- tabs ---- */

	tab_list() {
		this.tab_links = {};
		return E('ul', { 'class': 'cbi-tabmenu', 'role': 'tablist', 'aria-label': _('Settings'), 'keydown': ev => this.tab_key(ev) },
			tabs.map(tab => {
				this.tab_links[tab[0]] = E('a', { 'href': '#', 'role': 'tab', 'id': PREFIX + 'tab-' + tab[0],
					'aria-controls': PREFIX + 'panel-' + tab[0], 'click': ev => {
						ev.preventDefault();
						this.select_tab(tab[0], true);
					} }, [ tab[1] ]);
				return E('li', { 'role': 'presentation' }, [ this.tab_links[tab[0]] ]);
			}));
	}

	panel(name) {
		return E('div', { 'role': 'tabpanel', 'id': PREFIX + 'panel-' + name, 'aria-labelledby': PREFIX + 'tab-' + name },
			wan.fields.filter(field => field.tab === name).map(field => this.parts[field.name].row));
	}

	shown_tabs() {
		return tabs.map(tab => tab[0]).filter(name =>
			wan.fields.some(field => field.tab === name && wan.counts(field, this.record)));
	}

	select_tab(name, focus) {
		this.tab = name;
		tabs.forEach(tab => {
			const link = this.tab_links[tab[0]], selected = tab[0] === name;
			link.setAttribute('aria-selected', selected ? 'true' : 'false');
			link.setAttribute('tabindex', selected ? '0' : '-1');
			link.parentNode.className = selected ? 'cbi-tab' : 'cbi-tab-disabled';
			set_shown(document.getElementById(PREFIX + 'panel-' + tab[0]), selected);
		});
		if (focus)
			this.tab_links[name].focus();
	}

	tab_key(ev) {
		const shown = this.shown_tabs(), at = shown.indexOf(this.tab);
		const to = { ArrowRight: at + 1, ArrowLeft: at - 1 + shown.length, Home: 0, End: shown.length - 1 }[ev.key];
		if (to === undefined)
			return;
		ev.preventDefault();
		this.select_tab(shown[to % shown.length], true);
	}

	/* ---- what follows from an input ---- */

	changed(field) {
		const usual = wan.usual_mtu(this.record);
		this.record[field.name] = this.parts[field.name].read();
		this.touched[field.name] = true;
		if (this.record.mtu === usual && usual !== wan.usual_mtu(this.record)) {
			this.record.mtu = wan.usual_mtu(this.record);
			this.parts.mtu.write(this.record.mtu);
		}
		this.refresh();
	}

	/* Shows the fields that count, and what is wrong with those that were touched. */
	refresh() {
		const errors = this.errors();
		wan.fields.forEach(field => {
			const part = this.parts[field.name];
			set_shown(part.row, wan.counts(field, this.record));
			show_error(part, this.touched[field.name] ? errors[field.name] || '' : '');
		});
		const shown = this.shown_tabs();
		tabs.forEach(tab => set_shown(this.tab_links[tab[0]].parentNode, shown.indexOf(tab[0]) >= 0));
		this.way_back.show();
		set_shown(this.wait.row, !this.way_back.is_chosen());
		show_error(this.wait, this.check_wait());
	}

	/* By field name: what is wrong, conflicts with other WANs included. */
	errors() {
		const errors = {};
		wan.conflicts(this.record, this.others, this.asked.ports).forEach(conflict => {
			errors[conflict.name] = errors[conflict.name] ? errors[conflict.name] + ' ' + conflict.text : conflict.text;
		});
		wan.fields.forEach(field => {
			errors[field.name] = wan.check(field, this.record) || errors[field.name] || '';
		});
		return errors;
	}

	/* ---- saving ---- */

	/* Whether all is well; else the first field that is not is shown. */
	is_valid() {
		wan.fields.forEach(field => this.touched[field.name] = true);
		this.refresh();
		const errors = this.errors();
		const first = wan.fields.filter(field => errors[field.name])[0];
		if (first) {
			this.select_tab(first.tab, false);
			this.parts[first.name].input.focus();
			this.say(first.title + ': ' + errors[first.name]);
		}
		else if (this.check_wait() || this.way_back.check()) {
			(this.check_wait() ? this.wait : this.way_back.time).input.focus();
			this.say(this.check_wait() || this.way_back.check());
			return false;
		}
		return !first;
	}

	say(text) {
		dom.content(this.message, text === '' ? [] : [ notice('danger', [ text ]) ]);
	}

	/* The fields that the user has changed, with their values. */
	changes() {
		const changes = {};
		wan.fields.forEach(field => {
			const value = this.record[field.name];
			if (wan.counts(field, this.record) && value !== this.initial[field.name])
				changes[field.name] = value;
		});
		if (!wan.binds_ports(this.record) && this.initial.bind !== '')
			changes.bind = '';
		return changes;
	}

	save() {
		this.say('');
		if (!this.is_valid())
			return Promise.resolve();
		const changes = this.changes();
		if (this.edits && Object.keys(changes).length === 0) {
			this.finish(_('Nothing was changed.'));
			return Promise.resolve();
		}
		const made = !this.edits ? bus.add(this.typed(Object.assign(this.initial, changes)))
			: this.way_back.is_chosen() ? this.try_modify(changes) : this.modify(changes);
		return made.then(() => this.finish(this.done_words())).catch(error => this.failed(error));
	}

	done_words() {
		if (!this.edits)
			return _('The connection was added.');
		const name = this.asked.wan.wanName, wait = this.wait.read();
		return this.way_back.is_chosen() ? _('%s was changed on trial.').format(name)
			: wait > 0 ? _('The change of %s will be applied in %d seconds.').format(name, wait)
			: _('%s was changed.').format(name);
	}

	/* korvelctl lays what is said over what is stored, the password included. */
	try_modify(changes) {
		const id = this.asked.wan.wanId;
		return this.reread(changes).then(now => bus.try_modify(this.way_back.seconds(), id,
			wan.trial_changes(this.typed(now.record), changes, this.asked.ports)));
	}

	/* What is stored may have changed since the dialogue was opened: the user's changes go on top of what is there now. */
	modify(changes) {
		const id = this.asked.wan.wanId, wait = this.wait.read();
		return this.reread(changes).then(now => {
			const record = now.record;
			if (changes.pppPwd !== undefined)
				return record;
			if (wait > 0) {
				delete record.pppPwd;
				return record;
			}
			if (!now.wan.pppPwdSet)
				return record;
			return bus.password(id).then(password => Object.assign(record, { pppPwd: password }));
		}).then(record => bus.modify(id, this.typed(record), wait))
			.then(() => wait > 0 ? undefined : bus.confirm_change(id));
	}

	/* The WAN as it is now, and its record with the changes over it. */
	reread(changes) {
		return this.asked.reload(this.asked.wan.wanId).then(now => {
			if (!now)
				throw new Error(_('The connection is gone.'));
			return { wan: now.wan, record: Object.assign(wan.stored_record(now.wan, now.stored), changes) };
		});
	}

	/* A value of a wrong type would count as missing, and what is missing is reset: rather nothing is sent. */
	typed(record) {
		wan.fields.forEach(field => {
			if (record[field.name] !== undefined && !wan.is_fit(field, record[field.name]))
				throw new Error(_('%s has no value that can be sent.').format(field.title));
		});
		return record;
	}

	finish(text) {
		this.close();
		this.asked.done(text);
	}

	failed(error) {
		this.say(failure_words(error, this.way_back));
		if (error.unsure && this.way_back.is_chosen())
			this.asked.unsure(this.close);
		this.asked.done('');
	}
}

function failure_words(error, way) {
	if (!error.unsure)
		return error.message;
	return error.message + ' ' + (way.is_chosen()
		? _('The change may have been made all the same: then this page asks whether to keep it.')
		: _('The change may have been made all the same: look at the list before you try again.'));
}

function set_shown(node, shown) {
	if (shown)
		node.removeAttribute('hidden');
	else
		node.setAttribute('hidden', '');
	node.classList.toggle('hidden', !shown);
}

function changes_words(change) {
	return L.toArray(change.changes).map(name => wan.field_title(name)).join(', ');
}

return baseclass.extend({
	changes_words,

	edit(asked) {
		new editor(asked).open();
	},

	/* Asks, and deletes. `asked`: { wan, ports, pending, trial, give_focus_back(), done(text), unsure(close) } as above. */
	remove(asked) {
		const entry = asked.wan, bound = wan.bound_ports(entry, asked.ports);
		const message = E('div', { 'role': 'alert' });
		const goes = [
			_('Its configuration, its rules and its place in the firewall go.'),
			bound.length ? _('These ports are bound to nothing then: %s.').format(bound.join(', ')) : '',
			asked.pending.length ? _('A change of it that waits finds nothing to change.') : '',
			trial.carries_session(entry) ? _('You are connected through this connection: you will lose the gateway.') : '',
			trial_warning(asked.trial)
		].filter(text => text !== '');
		const way = new way_back(entry, can_be_tried(asked.trial), () => way.show());
		const say = text => dom.content(message, [ notice('danger', [ text ]) ]);
		const remove = () => {
			if (way.check()) {
				way.time.input.focus();
				say(way.check());
				return Promise.resolve();
			}
			const tried = way.is_chosen();
			return (tried ? bus.try_del(way.seconds(), entry.wanId) : bus.del(entry.wanId)).then(() => {
				close();
				asked.done((tried ? _('%s was deleted on trial.') : _('%s was deleted.')).format(entry.wanName));
			}).catch(error => {
				say(failure_words(error, way));
				if (error.unsure && tried)
					asked.unsure(close);
				asked.done('');
			});
		};
		const dismiss = E('button', { 'type': 'button', 'class': 'btn cbi-button cbi-button-neutral', 'click': () => close() }, [ _('Dismiss') ]);
		const close = show_modal(_('Delete connection'), _('Delete connection') + ': ' + entry.wanName, [
			E('p', {}, [ _('%s will be deleted.').format(entry.wanName) ]),
			E('ul', {}, goes.map(text => E('li', {}, [ text ]))),
			E('div', {}, way.rows),
			message,
			E('div', { 'class': 'right button-row' }, [
				dismiss,
				' ',
				E('button', { 'type': 'button', 'class': 'btn cbi-button cbi-button-negative important',
					'click': ui.createHandlerFn(this, remove) }, [ _('Delete') ])
			])
		], asked.give_focus_back);
		way.show();
		dismiss.focus();
	}
});
