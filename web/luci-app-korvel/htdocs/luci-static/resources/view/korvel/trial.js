'use strict';
'require baseclass';
'require dom';
'require ui';

/* A change that is on trial: whose connection it could cut, and what the page shows of it. */

/* An address as browsers write it, without a length; '' for what is none. */
function canonical(address) {
	const plain = String(address || '').split('/')[0];
	if (plain.indexOf(':') < 0)
		return plain;
	try {
		return new URL('http://[' + plain + ']/').hostname;
	}
	catch (error) {
		return '';
	}
}

function show(node, shown) {
	node.classList.toggle('hidden', !shown);
	if (shown)
		node.removeAttribute('hidden');
	else
		node.setAttribute('hidden', '');
}

function say(node, text) {
	if (node.textContent !== text)
		node.textContent = text;
}

function make_button(style, title, handler) {
	return E('button', { 'type': 'button', 'class': 'btn cbi-button cbi-button-' + style, 'click': handler }, [ title ]);
}

/*
 * What is said of the change on trial, with the seconds that it has left, and the buttons to end it for who may. The seconds
 * go by also while the gateway cannot be reached.
 */
class banner {
	/* `keep` and `take_back` return promises that do not fail; without them there are no buttons. */
	constructor(keep, take_back) {
		this.what = E('p', { 'role': 'status', 'id': 'korvel-trial-what' });
		this.time = E('p', { 'id': 'korvel-trial-time' });
		this.buttons = E('div', {}, keep ? [
			make_button('positive important', _('Keep'), ui.createHandlerFn(this, keep)), ' ',
			make_button('negative', _('Take back'), ui.createHandlerFn(this, take_back))
		] : []);
		this.node = E('div', { 'id': 'korvel-trial', 'role': 'region', 'aria-label': _('Change on trial') },
			[ this.what, this.time, this.buttons ]);
		this.trial = {};
		this.end = NaN;
		setInterval(() => this.show_time(), 1000);
		this.update({}, '');
	}

	/* `trial` as the gateway tells it; `name` of its WAN. Returns whether the focus was on what is gone. */
	update(trial, name) {
		const end = typeof trial.seconds === 'number' ? Date.now() + trial.seconds * 1000 : NaN;
		/* The gateway tells whole seconds: less than two are no reason for the time to jump. */
		if (!(Math.abs(end - this.end) < 2000))
			this.end = end;
		this.trial = trial;
		const lost_focus = !trial.waits && this.buttons.contains(document.activeElement);
		const text = this.words(trial, name);
		show(this.node, text !== '');
		show(this.buttons, trial.waits === true);
		this.node.className = text === '' ? 'hidden' : 'alert-message ' + (trial.waits || trial.undoing ? 'warning' : 'info');
		say(this.what, text);
		this.show_time();
		return lost_focus;
	}

	words(trial, name) {
		if (trial.waits)
			return name === '' ? _('A change is on trial.')
				: trial.made.result === 'deleted' ? _('The deletion of %s is on trial.').format(name)
				: trial.made.ok ? _('A change of %s is on trial.').format(name)
				: _('A change of %s is on trial; whether it was made is not known.').format(name);
		if (trial.undoing)
			return name === '' ? _('The change on trial is being taken back.') : _('The change of %s is being taken back.').format(name);
		switch (trial.ended) {
		case 'kept': return _('The change of %s was kept.').format(name);
		case 'taken back': return _('The change of %s was taken back.').format(name);
		case 'unknown': return _('The change of %s is on trial no more; look whether it is there.').format(name);
		default: return '';
		}
	}

	show_time() {
		const left = Math.max(0, Math.ceil((this.end - Date.now()) / 1000));
		show(this.time, this.trial.waits === true);
		if (!this.trial.waits)
			say(this.time, '');
		else if (isNaN(left))
			say(this.time, _('It began at the gateway’s prompt; how long it has is not known here.'));
		else if (left === 0)
			say(this.time, _('Its time is up: it is taken back.'));
		else
			say(this.time, N_(left, 'It is taken back in %d second unless it is kept.', 'It is taken back in %d seconds unless it is kept.').format(left));
	}
}

return baseclass.extend({
	banner,

	/*
	 * Whether the page was fetched from an address of this WAN. Then the session comes through it, as far as a page can tell:
	 * of where its requests come in it sees nothing.
	 */
	carries_session(entry) {
		const host = location.hostname;
		return [ entry.ip, entry.ipSec, entry.ipv6Addr, entry.ipv6SecAddr ].some(address => canonical(address) === host);
	}
});
