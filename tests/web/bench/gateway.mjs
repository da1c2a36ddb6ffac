// The virtual gateway that the tests run in: its daemon and its configuration.
import { spawn } from 'node:child_process';
import { setTimeout as pause } from 'node:timers/promises';
import { bus_call, bus_has, run, uci_lines } from './bus.mjs';

// How long a condition may take to come on a machine that is busy with other things.
export const deadline_ms = 60_000;

// Waits for a condition, which may fail meanwhile; the last failure is the error.
export async function until(what, condition, milliseconds = deadline_ms) {
    const end = Date.now() + milliseconds;
    for (;;) {
        let reason = '';
        try {
            const value = await condition();
            if (value)
                return value;
        } catch (error) {
            reason = `: ${error.message}`;
        }
        if (Date.now() > end)
            throw new Error(`did not come in time: ${what}${reason}`);
        await pause(20);
    }
}

export class gateway {
    constructor() {
        this.daemon = null;
    }

    async start() {
        this.daemon = spawn('korvel', ['-d'], { stdio: 'ignore' });
        this.daemon.ended = new Promise(resolve => this.daemon.once('exit', resolve));
        await until('the daemon on the bus', () => bus_has('korvel'));
    }

    async stop(signal = 'SIGTERM') {
        this.daemon?.kill(signal);
        await this.daemon?.ended;
        this.daemon = null;
        await until('the daemon off the bus', async () => !(await bus_has('korvel')));
    }

    // Has the service manager run the daemon, which can start it anew then, until it is stopped.
    async serve() {
        await this.stop();
        await run('/etc/init.d/korvel', ['start']);
        await until('the daemon on the bus', () => bus_has('korvel'));
        return async () => {
            await run('/etc/init.d/korvel', ['stop']);
            await this.start();
        };
    }

    // A gateway without WANs, and a daemon that has just started: nothing waits, nothing is on trial.
    async reset() {
        await run('korvelctl', ['confirm']);
        await run('sh', ['-c', 'rm -f /var/run/luci.korvel.*']);
        if (!this.is_running())
            await this.start();
        await this.call('delAll');
        await this.stop();
        await run('sh', ['-c', 'rm -f /gateway/netd/*']);
        await this.settle();
        await run('uci', ['set', 'network.korvel.maxWanId=0']);
        await run('uci', ['commit', 'network']);
        await this.start();
    }

    is_running() {
        return this.daemon !== null && this.daemon.exitCode === null && this.daemon.signalCode === null;
    }

    async call(method, args = {}) {
        const { status, reply } = await bus_call('korvel', method, args);
        return { status, ...(method === 'all' || method === 'get' ? { reply } : reply) };
    }

    // Adds a WAN; what is not said is as in the empty request.
    async add(args) {
        const { status, info } = await this.call('add', args);
        if (status !== 0)
            throw new Error(`add ${JSON.stringify(args)}: ${status} ${info}`);
    }

    async all() {
        return Object.values((await this.call('all')).reply ?? {});
    }

    // Until no interface is being brought up and no hotplug script runs.
    settle() {
        return bus_call('gateway-netd', 'settle', {}, 30);
    }

    // What there is of a WAN in the configuration, its sections' generated names left out: a sorted list of lines.
    async stored(id) {
        const lines = (await uci_lines('network')).filter(line => line.includes('.'));
        const device = lines.map(line => new RegExp(`^network\\.([^.]+)\\.lkname='${id}_`).exec(line)?.[1]).find(Boolean);
        const sections = { [device]: 'device', [`wan_${id}`]: 'wan', [`wan_${id}_v6`]: 'wan_v6', [`dslite_${id}`]: 'dslite' };
        return lines.flatMap(line => {
            const [, section, option] = /^network\.([^.=]+)\.(.*)$/s.exec(line) ?? [];
            return section in sections ? [`${sections[section]}.${option}`] : [];
        }).sort();
    }
}
