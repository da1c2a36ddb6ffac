// Runs the tests one after the other, in a virtual gateway: run.mjs [PATTERN], those whose names match.
import { after, describe, it } from 'node:test';
import { close_all, tests } from './fixture.mjs';
import './package_test.mjs';
import './bench_test.mjs';
import './overview_test.mjs';
import './edit_test.mjs';
import './dialogue_test.mjs';
import './trial_test.mjs';
import './access_test.mjs';

const pattern = new RegExp(process.argv[2] ?? '');
const chosen = tests.filter(test => pattern.test(test.name));

if (chosen.length === 0) {
    console.error(`no test's name matches ${pattern}`);
    process.exit(1);
}
describe('web application', () => {
    after(close_all);
    for (const { name, body } of chosen)
        it(name, body);
});
