// Where things are.
import { createRequire } from 'node:module';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

export const bench_directory = dirname(fileURLToPath(import.meta.url));
export const source_directory = join(bench_directory, '../../..');
export const application = join(source_directory, 'web/luci-app-korvel');

// What npm has installed, which is not in the tree.
const installed = process.env.KORVEL_WEB_INSTALLED ?? join(source_directory, 'build/web');
export const installed_require = createRequire(join(installed, 'package.json'));
