// Runs the tests one after the other, in a virtual gateway.
import { after } from 'node:test';
import { close_all } from './fixture.mjs';

const tests = ['overview', 'edit'];

after(close_all);
for (const name of tests)
    await import(`./${name}_test.mjs`);
