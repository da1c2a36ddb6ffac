// A browser on the application's page, and what a user does there.
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { installed_require } from './paths.mjs';
import { deadline_ms } from './gateway.mjs';

const puppeteer = installed_require('puppeteer-core');
const page_path = '/cgi-bin/luci/admin/network/korvel';
const pictures = process.env.KORVEL_WEB_PICTURES;
const most_presses = 5;

export const desktop = { width: 1200, height: 900 };
export const phone = { width: 390, height: 844, isMobile: true, hasTouch: true, deviceScaleFactor: 2 };

export function start_browser() {
    return puppeteer.launch({
        executablePath: process.env.KORVEL_WEB_BROWSER ?? '/usr/bin/chromium',
        headless: true,
        timeout: 2 * deadline_ms,
        protocolTimeout: 2 * deadline_ms,
        args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage', '--disable-quic', '--no-first-run',
            '--disable-background-networking', '--disable-component-update', '--disable-sync', '--lang=en-US',
            '--font-render-hinting=none']
    });
}

// A page of its own, with its own cookies.
export class user {
    constructor(context, page, address) {
        this.context = context;
        this.page = page;
        this.address = address;
    }

    static async arrive(browser, address, session, viewport = desktop) {
        const context = await browser.createBrowserContext();
        const page = await context.newPage();
        page.setDefaultTimeout(deadline_ms);
        await page.setViewport(viewport);
        await page.setCookie({ name: 'sysauth_http', value: session, url: address, httpOnly: true });
        return new user(context, page, address);
    }

    leave() {
        return this.context.close();
    }

    async open(query = '') {
        await this.page.goto(this.address + page_path + query);
        await this.wait('the list', () => {
            const rows = document.querySelector('#korvel-wans');
            return rows && !rows.textContent.includes('Collecting') && !rows.textContent.includes('gesammelt');
        });
    }

    // Until the function, which runs in the page, returns something.
    async wait(what, condition, ...args) {
        try {
            const handle = await this.page.waitForFunction(condition, { timeout: deadline_ms, polling: 50 }, ...args);
            return handle.jsonValue();
        } catch (error) {
            throw new Error(`did not come in time: ${what}; the page says:\n${await this.text()}\n(${error.message})`);
        }
    }

    text(selector = 'body') {
        return this.page.$eval(selector, node => node.innerText);
    }

    // The texts of a table's cells, row by row; hidden ones too.
    rows(selector = '#korvel-wans') {
        return this.page.$$eval(`${selector} tr.cbi-section-table-row`, rows =>
            rows.map(row => [...row.querySelectorAll('td:not(.cbi-section-actions)')].map(cell =>
                [...cell.firstElementChild.children].map(line => line.textContent).join('\n'))));
    }

    async wait_for_rows(count) {
        await this.wait(`${count} rows`, wanted =>
            document.querySelectorAll('#korvel-wans tr.cbi-section-table-row').length === wanted, count);
    }

    // The message at the top of the page.
    async wait_for_text(selector, text) {
        await this.wait(`"${text}"`, (where, wanted) => document.querySelector(where)?.textContent.includes(wanted), selector, text);
    }

    async press_button(name, scope = 'body') {
        const handle = await this.page.waitForFunction((where, wanted) =>
            [...document.querySelectorAll(`${where} button`)].find(button => button.offsetParent && !button.disabled &&
                (button.getAttribute('aria-label') ?? button.textContent) === wanted),
        { timeout: deadline_ms, polling: 50 }, scope, name).catch(error => {
            throw new Error(`no button "${name}": ${error.message}`);
        });
        await handle.evaluate(button => {
            button.scrollIntoView({ block: 'center' });
            button.addEventListener('click', () => (button.was_pressed = true), { capture: true, once: true });
            button.was_pressed = false;
        });
        // What is drawn meanwhile may move a button away from under the pointer; then a user presses it again.
        for (let i = 0; i < most_presses; i++) {
            await handle.click();
            if (await handle.evaluate(button => button.was_pressed))
                return;
        }
        throw new Error(`the button "${name}" cannot be hit; the page says:\n${await this.text()}`);
    }

    async dialogue() {
        await this.wait('a dialogue', () => document.body.classList.contains('modal-overlay-active'));
    }

    async dialogue_closed() {
        await this.wait('the dialogue closed', () => !document.body.classList.contains('modal-overlay-active'));
    }

    async tab(name) {
        await this.page.click(`#korvel-tab-${name}`);
    }

    // Sets a field of the dialogue as a user does; `tab` is opened first.
    async set(name, value) {
        const selector = `#korvel-${name}`;
        const tab = await this.page.$eval(selector, node => node.closest('[role=tabpanel]')?.id.replace('korvel-panel-', ''));
        if (tab)
            await this.tab(tab);
        const kind = await this.page.$eval(selector, node => node.tagName === 'SELECT' ? 'select' : node.getAttribute('role') ?? node.type);
        if (kind === 'select') {
            await this.page.select(selector, String(value));
        } else if (kind === 'checkbox') {
            if ((await this.page.$eval(selector, node => node.checked)) !== value)
                await this.page.click(selector);
        } else if (kind === 'group') {
            const boxes = await this.page.$$(`${selector} input`);
            for (const [i, box] of boxes.entries()) {
                if ((await box.evaluate(node => node.checked)) !== (value[i] === '1'))
                    await box.click();
            }
        } else {
            await this.page.$eval(selector, node => node.select());
            await this.page.keyboard.press('Backspace');
            await this.page.type(selector, String(value));
        }
    }

    async fill(values) {
        for (const [name, value] of Object.entries(values))
            await this.set(name, value);
    }

    // What the field says is wrong.
    error(name) {
        return this.page.$eval(`#korvel-${name}-error`, node => node.textContent);
    }

    // Names of the fields that are shown, on whichever tab.
    shown_fields() {
        return this.page.$$eval('[data-name]', rows => rows.filter(row => !row.hidden).map(row => row.dataset.name));
    }

    // Refusals of the framework's stand-in, and failures that nobody caught.
    async complaints() {
        return this.page.evaluate(() => typeof bench === 'undefined' ? [] : [...bench.refusals, ...bench.unhandled, ...(bench.failure ? [bench.failure] : [])]);
    }

    async picture(name, full = true) {
        if (!pictures)
            return;
        mkdirSync(pictures, { recursive: true });
        await this.page.screenshot({ path: join(pictures, `${name}.png`), fullPage: full });
    }
}
