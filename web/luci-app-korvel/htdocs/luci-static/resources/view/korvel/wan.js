'use strict';
'require baseclass';

/*
 * What a WAN is made of, in words: its fields, what each accepts, when it counts, and what would stand in its way.
 * A record is an object with the members of a WAN as the bus reports them, each of its own type.
 */

const ROUTED = 1, BRIDGED = 0;
const DHCP = 0, STATIC = 1, PPPOE = 2;
const IPV4 = 1, IPV6 = 2;
const SERVICE_OTHER = 3;
const MTU_PPPOE = 1492, MTU_OTHER = 1500;
const MOST_PORTS = 17;

const services = [
	_('Internet, remote management'),
	_('Internet'),
	_('Remote management'),
	_('Other'),
	_('Telephony'),
	_('Telephony, remote management'),
	_('Telephony, Internet'),
	_('Telephony, Internet, remote management')
];

const services_with_ports = [ 0, 1, 3, 6, 7 ];

const is_routed = r => r.wanMode === ROUTED;
const has_ipv4 = r => is_routed(r) && (r.ipProtocol & IPV4) !== 0;
const has_ipv6 = r => is_routed(r) && (r.ipProtocol & IPV6) !== 0;
const is_static = r => is_routed(r) && r.ipMode === STATIC;
const is_pppoe = r => is_routed(r) && r.ipMode === PPPOE;
const is_tagged = r => r.vlanMode === true;
const only_ipv6 = r => is_routed(r) && r.ipProtocol === IPV6;
const binds_ports = r => services_with_ports.indexOf(r.service) >= 0;

/* ---- addresses ---- */

function has_only(text, characters) {
	for (let i = 0; i < text.length; i++)
		if (characters.indexOf(text[i]) < 0)
			return false;
	return true;
}

/* A whole number without sign and superfluous zeros, or NaN. */
function parse_number(text) {
	const trimmed = String(text).trim();
	if (trimmed === '' || trimmed.length > 9 || !has_only(trimmed, '0123456789'))
		return NaN;
	return trimmed.length > 1 && trimmed[0] === '0' ? NaN : Number(trimmed);
}

/* A dotted quad as a number, or NaN. */
function parse_ipv4(text) {
	const parts = text.split('.').map(parse_number);
	if (parts.length !== 4 || parts.some(part => !(part <= 255)))
		return NaN;
	return parts.reduce((sum, part) => sum * 256 + part, 0);
}

function is_mask(number) {
	const inverse = 0xffffffff - number;
	return number > 0 && Number.isInteger(Math.log2(inverse + 1));
}

/* How many of an IPv6 address' eight groups a row of groups fills; NaN when it is none. */
function count_groups(text, may_end_in_ipv4) {
	if (text === '')
		return 0;
	const groups = text.split(':');
	const last = groups[groups.length - 1];
	let count = groups.length;
	if (may_end_in_ipv4 && last.indexOf('.') >= 0) {
		if (isNaN(parse_ipv4(last)))
			return NaN;
		groups.pop();
		count++;
	}
	const is_group = group => group.length >= 1 && group.length <= 4 && has_only(group.toLowerCase(), '0123456789abcdef');
	return groups.every(is_group) ? count : NaN;
}

function is_ipv6(text) {
	const halves = text.split('::');
	if (halves.length === 1)
		return count_groups(text, true) === 8;
	return halves.length === 2 && count_groups(halves[0], false) + count_groups(halves[1], true) <= 7;
}

function is_ipv6_with_length(text) {
	const parts = text.split('/');
	return parts.length === 2 && is_ipv6(parts[0]) && parse_number(parts[1]) <= 128;
}

function byte_length(text) {
	return new TextEncoder().encode(text).length;
}

/* ---- checks: a sentence that says what would be right, or '' ---- */

function whole_number(least, most) {
	return value => value >= least && value <= most ? '' : _('A whole number from %d to %d.').format(least, most);
}

function at_most_bytes(most) {
	return value => byte_length(value) <= most ? ''
		: N_(most, 'At most %d byte; letters with accents take two or more.',
			'At most %d bytes; letters with accents take two or more.').format(most);
}

function required(check) {
	return (value, record) => value === '' ? _('This is needed.') : check(value, record);
}

function optional(check) {
	return (value, record) => value === '' ? '' : check(value, record);
}

const check_ipv4 = value => isNaN(parse_ipv4(value)) ? _('An IPv4 address such as 192.0.2.10.') : '';
const check_mask = value => is_mask(parse_ipv4(value)) ? '' : _('A network mask such as 255.255.255.0.');
const check_ipv6 = value => is_ipv6(value) && value.length <= 39 ? '' : _('An IPv6 address such as 2001:db8::10.');
const check_ipv6_address = value => is_ipv6_with_length(value) && value.length <= 44 ? ''
	: _('An IPv6 address with its length, such as 2001:db8::10/64.');
const check_ipv6_prefix = value => is_ipv6_with_length(value) && value.length <= 43 ? ''
	: _('An IPv6 prefix with its length, such as 2001:db8:100::/56.');

/* Each byte by itself, since bit operations take numbers for signed. */
function same_network(one, other, mask) {
	for (let unit = 1; unit <= 0x1000000; unit *= 256) {
		const byte = number => Math.floor(number / unit) % 256;
		if ((byte(one) & byte(mask)) !== (byte(other) & byte(mask)))
			return false;
	}
	return true;
}

function check_gateway(value, record) {
	const gateway = parse_ipv4(value), address = parse_ipv4(record.ip), mask = parse_ipv4(record.mask);
	if (isNaN(gateway))
		return check_ipv4(value);
	if (isNaN(address) || !is_mask(mask) || same_network(gateway, address, mask))
		return '';
	return _('An address in the network of %s.').format(record.ip + '/' + record.mask);
}

function check_multicast_vlan(value, record) {
	return whole_number(0, 4095)(value) ||
		(value !== 0 && value === record.vid ? _('Another VLAN than the connection’s own.') : '');
}

function check_ports(value, record) {
	return is_bridged_other(record) && value.indexOf('1') < 0
		? _('A bridged connection for other purposes needs a port.') : '';
}

function is_bridged_other(record) {
	return record.wanMode === BRIDGED && record.service === SERVICE_OTHER;
}

/* ---- the fields, in the order of the arguments of `add` and `modify` ---- */

/*
 * type    what the bus demands: 'number', 'flag' or 'text'
 * tab     where it is shown
 * counts  whether it does anything in a WAN like the record; else it is not shown
 * check   (value, record) → '' or what would be right
 * first   its value in a new routed WAN, or in a bridged one that becomes routed
 */
const fields = [
	{ name: 'wanMode', type: 'number', tab: 'general', title: _('Mode'), first: ROUTED,
		choices: [ [ ROUTED, _('Routed') ], [ BRIDGED, _('Bridged') ] ],
		hint: _('A bridged connection leads its LAN ports straight to the line.') },
	{ name: 'ipProtocol', type: 'number', tab: 'general', title: _('IP versions'), first: IPV4 | IPV6,
		choices: [ [ IPV4 | IPV6, _('IPv4 and IPv6') ], [ IPV4, _('IPv4 only') ], [ IPV6, _('IPv6 only') ] ] },
	{ name: 'ipMode', type: 'number', tab: 'general', title: _('Addresses'), first: PPPOE, counts: is_routed,
		choices: [ [ PPPOE, _('PPPoE') ], [ DHCP, _('DHCP') ], [ STATIC, _('Static') ] ] },
	{ name: 'napt', type: 'flag', tab: 'ipv4', title: _('Address translation'), first: true, counts: has_ipv4,
		hint: _('Devices at home share the address of this connection.') },
	{ name: 'vlanMode', type: 'flag', tab: 'general', title: _('Tagged'), first: true,
		hint: _('Frames carry a VLAN number.') },
	{ name: 'vid', type: 'number', tab: 'general', title: _('VLAN'), counts: is_tagged, check: whole_number(0, 4095),
		first: NaN },
	{ name: 'mvid', type: 'number', tab: 'general', title: _('Multicast VLAN'), counts: is_tagged,
		check: check_multicast_vlan, hint: _('The VLAN in which television arrives; 0 for none.') },
	{ name: 'prio', type: 'number', tab: 'general', title: _('Priority'), counts: is_tagged,
		choices: [ 0, 1, 2, 3, 4, 5, 6, 7 ].map(number => [ number, String(number) ]),
		hint: _('Of tagged frames; 7 is the highest.') },
	{ name: 'mtu', type: 'number', tab: 'general', title: _('MTU'), first: MTU_PPPOE, check: whole_number(650, 1500),
		hint: _('Bytes in a packet: 1492 for PPPoE, else 1500.') },
	{ name: 'service', type: 'number', tab: 'ports', title: _('Service'), first: 1,
		choices: [ 1, 0, 2, 4, 5, 6, 7, 3 ].map(number => [ number, services[number] ]) },
	{ name: 'disableLanDhcp', type: 'flag', tab: 'ports', title: _('Keep DHCP apart'),
		hint: _('No DHCP and no router advertisements between the bound ports and this connection.') },
	{ name: 'bind', type: 'text', tab: 'ports', title: _('Bound ports'), counts: binds_ports, check: check_ports,
		ports: true },
	{ name: 'autoDns', type: 'flag', tab: 'ipv4', title: _('Name servers from the provider'), first: true,
		counts: r => has_ipv4(r) && !is_static(r) },
	{ name: 'priDns', type: 'text', tab: 'ipv4', title: _('First name server'),
		counts: r => has_ipv4(r) && (is_static(r) || !r.autoDns), check: optional(check_ipv4) },
	{ name: 'secDns', type: 'text', tab: 'ipv4', title: _('Second name server'),
		counts: r => has_ipv4(r) && (is_static(r) || !r.autoDns), check: optional(check_ipv4) },
	{ name: 'autoDnsV6', type: 'flag', tab: 'ipv6', title: _('Name servers from the provider (IPv6)'), first: true,
		counts: r => has_ipv6(r) && !is_static(r) },
	{ name: 'priDnsV6', type: 'text', tab: 'ipv6', title: _('First name server (IPv6)'),
		counts: r => has_ipv6(r) && (is_static(r) || !r.autoDnsV6), check: optional(check_ipv6) },
	{ name: 'secDnsV6', type: 'text', tab: 'ipv6', title: _('Second name server (IPv6)'),
		counts: r => has_ipv6(r) && (is_static(r) || !r.autoDnsV6), check: optional(check_ipv6) },
	{ name: 'ip', type: 'text', tab: 'ipv4', title: _('Address'), counts: r => has_ipv4(r) && is_static(r),
		check: required(check_ipv4) },
	{ name: 'mask', type: 'text', tab: 'ipv4', title: _('Network mask'), counts: r => has_ipv4(r) && is_static(r),
		check: required(check_mask) },
	{ name: 'gateway', type: 'text', tab: 'ipv4', title: _('Gateway'), counts: r => has_ipv4(r) && is_static(r),
		check: optional(check_gateway) },
	{ name: 'ipv6PrefixProxy', type: 'flag', tab: 'ipv6', title: _('Prefix for the LAN'), first: true, counts: has_ipv6,
		hint: _('What the provider delegates is handed on to devices at home.') },
	{ name: 'ipv6Addr', type: 'text', tab: 'ipv6', title: _('Address (IPv6)'), counts: r => has_ipv6(r) && is_static(r),
		check: required(check_ipv6_address) },
	{ name: 'ipv6Gateway', type: 'text', tab: 'ipv6', title: _('Gateway (IPv6)'), counts: r => has_ipv6(r) && is_static(r),
		check: optional(check_ipv6) },
	{ name: 'ipv6Prefix', type: 'text', tab: 'ipv6', title: _('Prefix'), counts: r => has_ipv6(r) && is_static(r),
		check: optional(check_ipv6_prefix) },
	{ name: 'pppUser', type: 'text', tab: 'pppoe', title: _('User name'), counts: is_pppoe, check: at_most_bytes(64) },
	{ name: 'pppPwd', type: 'text', tab: 'pppoe', title: _('Password'), counts: is_pppoe, check: at_most_bytes(64),
		secret: true },
	{ name: 'pppServName', type: 'text', tab: 'pppoe', title: _('Service name'), counts: is_pppoe,
		check: at_most_bytes(64), hint: _('Only where the provider asks for one.') },
	{ name: 'pppDialMode', type: 'flag', tab: 'pppoe', title: _('Dial on demand'), counts: is_pppoe,
		hint: _('Connected only while something is sent.') },
	{ name: 'iphostId', type: 'number', tab: 'general', title: _('IP host'), counts: has_ipv4,
		choices: [ [ 0, _('None') ], [ 1, '1' ], [ 2, '2' ] ],
		hint: _('The IP host of the optical network unit that this connection is.') },
	{ name: 'ipv6DsLite', type: 'flag', tab: 'ipv6', title: _('DS-Lite'), counts: only_ipv6,
		hint: _('IPv4 travels in a tunnel through this connection.') },
	{ name: 'ipv6AddrDsLite', type: 'text', tab: 'ipv6', title: _('Tunnel end-point'),
		counts: r => only_ipv6(r) && r.ipv6DsLite, check: required(at_most_bytes(64)) }
];

const neutral = { number: 0, flag: false, text: '' };

/* Of a change with a way back: what one option sets together. */
const set_together = [
	[ 'wanMode', 'ipMode', 'pppUser' ],
	[ 'vlanMode', 'vid' ],
	[ 'autoDns', 'priDns', 'secDns' ],
	[ 'autoDnsV6', 'priDnsV6', 'secDnsV6' ],
	[ 'ipv6DsLite', 'ipv6AddrDsLite' ]
];

/* What a query reports of the link, not of the configuration. */
const addresses = [ 'ip', 'mask', 'gateway', 'ipv6Addr', 'ipv6Gateway', 'ipv6Prefix' ];

/* As the daemon tells the name servers in a list apart. */
const is_ipv6_text = text => text.indexOf('.') < 0 && text.indexOf(':') >= 0;

function first_two(first, second, list, is_wanted) {
	const wanted = (list || '').split(' ').filter(text => text !== '' && is_wanted(text));
	return { [first]: wanted[0] || '', [second]: wanted[1] || '' };
}

function counts(field, record) {
	return !field.counts || field.counts(record);
}

/* Every argument with nothing in it. */
function empty_record() {
	const record = {};
	fields.forEach(field => record[field.name] = neutral[field.type]);
	return record;
}

/* What the bus demands of a value, which counts as missing in another type. */
function is_fit(field, value) {
	switch (field.type) {
	case 'number': return Number.isInteger(value);
	case 'flag': return typeof value === 'boolean';
	default: return typeof value === 'string';
	}
}

/* ---- conflicts, as the daemon judges them ---- */

function same_vlan(one, other) {
	return is_tagged(one) ? is_tagged(other) && one.vid === other.vid : !is_tagged(other);
}

function shared_ports(one, other) {
	const shared = [];
	for (let i = 0; i < MOST_PORTS; i++)
		if (one.bind[i] === '1' && other.bind[i] === '1')
			shared.push(i);
	return shared;
}

return baseclass.extend({
	ROUTED, BRIDGED, PPPOE, STATIC, DHCP,
	fields, services, counts, is_fit, has_ipv4, has_ipv6, is_static, is_pppoe, is_tagged, binds_ports, parse_number,

	usual_mtu(record) {
		return is_pppoe(record) ? MTU_PPPOE : MTU_OTHER;
	},

	/* A new WAN before anything is chosen. */
	new_record() {
		return this.with_first_values(empty_record());
	},

	empty_record,

	/* With sensible values where a bridged WAN has none; what it has stays. */
	with_first_values(record) {
		const result = Object.assign({}, record);
		fields.forEach(field => {
			if (field.first !== undefined)
				result[field.name] = field.first;
		});
		return result;
	},

	/* A bridged WAN's record as its fields are to stand when it is made a routed one. */
	prepared_for_routing(record) {
		const result = Object.assign({}, record);
		fields.forEach(field => {
			if (field.counts && field.first !== undefined && field.counts !== is_tagged)
				result[field.name] = field.first;
		});
		return result;
	},

	/*
	 * A WAN as it is stored: as the bus reports it, but with what its configuration says in place of what the link has.
	 * `stored` holds texts, a member for each option that there is, and `wanId` unless the gateway cannot tell.
	 */
	stored_record(wan, stored) {
		const record = empty_record();
		fields.forEach(field => {
			if (is_fit(field, wan[field.name]))
				record[field.name] = wan[field.name];
		});
		const is_told = stored.wanId !== undefined;
		addresses.forEach(name => {
			if (!is_static(record) || is_told)
				record[name] = (is_static(record) && stored[name]) || '';
		});
		if (is_told || record.autoDns)
			Object.assign(record, first_two('priDns', 'secDns', stored.dns, server => !is_ipv6_text(server)));
		if (is_told || record.autoDnsV6)
			Object.assign(record, first_two('priDnsV6', 'secDnsV6', record.ipMode === DHCP ? stored.dnsV6 : stored.dns, is_ipv6_text));
		if (stored.napt !== undefined)
			record.napt = stored.napt === '1';
		if (stored.iphostId !== undefined)
			record.iphostId = parse_number(stored.iphostId) || 0;
		if (stored.pppServName !== undefined && is_pppoe(record))
			record.pppServName = stored.pppServName;
		return record;
	},

	/* What is wrong with a field's value: a sentence, or ''. */
	check(field, record) {
		if (!counts(field, record))
			return '';
		if (field.check)
			return field.check(record[field.name], record);
		return '';
	},

	/*
	 * What of the other WANs stands in a record's way: { name, text } with the field that would have to change. `ports` are
	 * the board's.
	 */
	conflicts(record, others, ports) {
		const found = [];
		others.forEach(other => {
			if ((record.wanMode === BRIDGED || other.wanMode === BRIDGED) && same_vlan(record, other))
				found.push({ name: is_tagged(record) ? 'vid' : 'vlanMode', text: is_tagged(record)
					? _('%s has VLAN %d, and a bridged connection shares its VLAN with no other.').format(other.wanName, record.vid)
					: _('%s is untagged too, and a bridged connection shares the untagged line with no other.').format(other.wanName) });
			if (is_tagged(record) && record.mvid !== 0 && record.mvid === other.mvid)
				found.push({ name: 'mvid', text: _('%s has multicast VLAN %d.').format(other.wanName, record.mvid) });
			if (binds_ports(record))
				shared_ports(record, other).forEach(i => found.push({ name: 'bind',
					text: _('%s is bound to %s.').format(this.port_label(ports, i), other.wanName) }));
		});
		return found;
	},

	/* The board's ports in the order of `bind`: { device, label, word }, the word being korvelctl's. Without a description, as many as the WANs tell of. */
	board_ports(board, wans) {
		const ports = [];
		const count = kind => Math.min((board && board[kind] && board[kind].numOfPorts) || 0, MOST_PORTS);
		const add = (kind, device, label, word, before) => {
			for (let i = 0; i < count(kind) && ports.length < MOST_PORTS; i++)
				ports.push({ device: device(i), label: label(i), word: word + (before + i + 1) });
		};
		add('lan', i => 'eth0.' + (i + 1), i => _('LAN %d').format(i + 1), 'lan', 0);
		add('lan_phy', i => 'eth0.' + (8 - i), i => _('LAN %d').format(count('lan') + i + 1), 'lan', count('lan'));
		add('wlan_2g', i => 'ra' + i, i => _('Wi-Fi 2.4 GHz %d').format(i + 1), 'ssid', 0);
		add('wlan_5g', i => 'rai' + i, i => _('Wi-Fi 5 GHz %d').format(i + 1), 'ssid', count('wlan_2g'));
		if (ports.length === 0) {
			const most = wans.reduce((sum, wan) => Math.max(sum, wan.bind.length), 0);
			for (let i = 0; i < most; i++)
				ports.push({ device: '', label: _('Port %d').format(i + 1) });
		}
		return ports;
	},

	port_label(ports, i) {
		return ports[i] ? ports[i].label : _('Port %d').format(i + 1);
	},

	bound_ports(wan, ports) {
		const bound = [];
		for (let i = 0; i < wan.bind.length; i++)
			if (wan.bind[i] === '1')
				bound.push(this.port_label(ports, i));
		return bound;
	},

	/*
	 * The management device, which the gateway makes for the provider and reports as a bridged WAN. Changed like one it would
	 * be one; deleted, the provider loses the gateway.
	 */
	is_management(wan) {
		return wan.wanMode === BRIDGED && wan.wanName === wan.wanId + '_OTHER_B_TMP';
	},

	/*
	 * What a change with a way back has to say: `changes` and what is set together with them, as `record` has it, which is
	 * what is stored with the changes over it. The bound ports become korvelctl's words. Throws where they have none.
	 */
	trial_changes(record, changes, ports) {
		const said = Object.assign({}, changes);
		set_together.forEach(names => {
			if (names.some(name => name in changes))
				names.forEach(name => said[name] = record[name]);
		});
		[ 'autoDns', 'autoDnsV6' ].forEach(name => {
			if (name in said && is_static(record))
				said[name] = false;
		});
		if (record.ipv6DsLite && !only_ipv6(record))
			said.ipv6DsLite = false;
		if ('bind' in changes) {
			const bound = [];
			for (let i = 0; i < changes.bind.length; i++)
				if (changes.bind[i] === '1')
					bound.push(ports[i] && ports[i].word);
			if (bound.some(word => !word))
				throw new Error(_('These ports cannot be bound with a way back: the gateway does not tell them.'));
			said.ports = bound.length ? bound.join(',') : 'none';
			delete said.bind;
		}
		return said;
	},

	/* "Routed, PPPoE". */
	mode_words(wan) {
		if (this.is_management(wan))
			return _('Management device');
		if (wan.wanMode === BRIDGED)
			return _('Bridged');
		return _('Routed') + ', ' + [ _('DHCP'), _('Static'), _('PPPoE') ][wan.ipMode];
	},

	vlan_words(wan) {
		return is_tagged(wan) ? _('VLAN %d').format(wan.vid) : _('Untagged');
	},

	service_words(wan) {
		if (this.is_management(wan))
			return _('The provider’s: not changed here.');
		return services[wan.service] || _('Other');
	},

	/* The title of an argument, for lists of what changes. */
	field_title(name) {
		const field = fields.filter(candidate => candidate.name === name)[0];
		return field ? field.title : name;
	}
});
