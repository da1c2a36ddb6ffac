// The gateway's bus and configuration, through the tools that a person would use.
import { spawn } from 'node:child_process';

// Runs a program to its end: { status, output, errors }. A program that a signal ended has the status 128.
export function run(program, args = [], input = '') {
    return new Promise((resolve, reject) => {
        const child = spawn(program, args, { stdio: ['pipe', 'pipe', 'pipe'] });
        let output = '';
        let errors = '';
        child.stdout.setEncoding('utf8').on('data', text => (output += text));
        child.stderr.setEncoding('utf8').on('data', text => (errors += text));
        child.on('error', reject);
        child.on('close', code => resolve({ status: code ?? 128, output, errors }));
        child.stdin.on('error', () => {}); // one that does not read its input may end before
        child.stdin.end(input);
    });
}

export async function bus_has(object) {
    return (await run('ubus', ['-S', 'list', object])).status === 0;
}

// { status, reply }: the bus status, and the reply if there is one.
export async function bus_call(object, method, args = {}, seconds = 60) {
    const { status, output } = await run('ubus', ['-S', '-t', String(seconds), 'call', object, method, JSON.stringify(args)]);
    return { status, reply: output.trim() ? JSON.parse(output) : undefined };
}

// The whole of a configuration, a line each, as `uci show` prints it.
export async function uci_lines(config) {
    const { output } = await run('uci', ['-q', 'show', config]);
    return output.split('\n').filter(line => line !== '');
}

export async function uci(...args) {
    const { status, output, errors } = await run('uci', args);
    if (status !== 0)
        throw new Error(`uci ${args.join(' ')}: ${errors}`);
    return output.trim();
}
