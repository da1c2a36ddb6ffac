// The web application on a virtual gateway, for a person to click through.
//
//   demo.mjs LAUNCHER DIRECTORY   starts the gateway and prints an address of this machine that leads into it
//   demo.mjs --inside SOCKET      serves the pages in the gateway, on a socket: it has a network of its own
import { spawn } from 'node:child_process';
import { existsSync, rmSync } from 'node:fs';
import { connect, createServer } from 'node:net';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { bridge } from './bench/bridge.mjs';
import { bus_call } from './bench/bus.mjs';
import { until } from './bench/gateway.mjs';
import { bridged, dhcp, pppoe, static_wan } from './examples.mjs';

const preferred_port = 8080;

async function serve_inside(socket) {
    for (const wan of [pppoe, dhcp, static_wan, bridged])
        await bus_call('korvel', 'add', wan);
    const between = new bridge();
    between.visitors = { administrator: { read: ['*'], write: ['*'] }, reader: { read: ['*'] } };
    await between.listen(socket);
    process.once('SIGTERM', () => process.exit(0));
}

function listen(server, port) {
    return new Promise((resolve, reject) => {
        server.once('error', reject);
        server.listen(port, '127.0.0.1', () => resolve(server.address().port));
    });
}

async function lead_inside(launcher, directory) {
    const socket = join(directory, 'web-demo.sock');
    rmSync(socket, { force: true });
    const inside = [process.execPath, fileURLToPath(import.meta.url), '--inside', socket];
    const gateway = spawn(launcher, ['--', ...inside], { stdio: 'inherit' });
    const ended = new Promise(resolve => gateway.once('exit', resolve));
    for (const signal of ['SIGINT', 'SIGTERM'])
        process.on(signal, () => gateway.kill('SIGTERM'));

    const door = createServer(outer => {
        const inner = connect(socket);
        for (const [one, other] of [[outer, inner], [inner, outer]])
            one.on('error', () => other.destroy()).pipe(other);
    });
    await Promise.race([until('the pages', () => existsSync(socket), 60_000), ended]);
    if (gateway.exitCode === null) {
        const port = await listen(door, preferred_port).catch(() => listen(door, 0));
        console.log(`\n  http://127.0.0.1:${port}/            as one who may change the WANs`);
        console.log(`  http://127.0.0.1:${port}/?as=reader  as one who may only look at them\n\nCtrl-C ends it.`);
    }
    const status = await ended;
    door.close();
    rmSync(socket, { force: true });
    process.exit(gateway.signalCode === null ? status : 0);
}

const [, , first, second] = process.argv;
await (first === '--inside' ? serve_inside(second) : lead_inside(first, second));
