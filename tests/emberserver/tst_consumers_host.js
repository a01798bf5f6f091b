// Independent consumers (emberplus-connection) against one provider in a small host program
// (ember_test_host): the whole tree, writes and their echo, invocations, values reported by the
// instance, and a consumer that never reads while values pour in.
// Run by CTest with VEXA_BIN_DIR and VEXA_SOURCE_DIR set; exits non-zero on any failure.
'use strict';

const assert = require('assert');
const net = require('net');
const path = require('path');
const fs = require('fs');
const { spawn } = require('child_process');
const t = require('./instance_tree');

const binDir = process.env.VEXA_BIN_DIR || path.join(__dirname, '..', '..', 'build-es', 'bin');

function startHost() {
    const host = spawn(path.join(binDir, 'ember_test_host'), [], { stdio: ['pipe', 'pipe', 'inherit'] });
    host.lines = [];
    let pending = '';
    host.stdout.on('data', (d) => {
        pending += d;
        let end;
        while ((end = pending.indexOf('\n')) >= 0) {
            host.lines.push(pending.slice(0, end));
            pending = pending.slice(end + 1);
        }
    });
    host.send = (line) => host.stdin.write(line + '\n');
    host.has = (prefix) => host.lines.some((l) => l.startsWith(prefix));
    return host;
}

function rss(pid) {
    const m = /VmRSS:\s+(\d+) kB/.exec(fs.readFileSync(`/proc/${pid}/status`, 'utf8'));
    return m ? Number(m[1]) : -1;
}

const hex = (s) => Buffer.from(s).toString('hex');

async function main() {
    const host = startHost();
    const { check } = t.runner();
    const r = t.runner();
    let first;
    let second;
    try {
        await t.waitFor('the host to listen', () => host.has('PORT '));
        const port = Number(host.lines.find((l) => l.startsWith('PORT ')).slice(5));
        first = await t.connect(port);
        second = await t.connect(port);

        await r.check('the whole tree, element by element', () => t.checkTree(first));
        await second.expand(second.tree);
        await t.waitFor('two consumers', () => host.lines.filter((l) => l.startsWith('ADDED ')).length === 2);
        await r.check('consumer texts', () => {
            assert.strictEqual(host.lines.find((l) => l.startsWith('ADDED ')),
                `ADDED Ember+ host: 127.0.0.1 port ${port}`);
        });

        await r.check('a write to "group" is forwarded and echoed to the other consumer', async () => {
            await first.setValue(t.nodeAt(first, '0.0.6'), 5, false);
            await t.waitFor('the echo', () => t.valueAt(second, '0.0.6') === 5);
            await t.waitFor('the forward', () => host.has('SEND 000600 5 '));
        });

        await r.check('a write to read-only "Status" is refused', async () => {
            await first.setValue(t.nodeAt(first, '0.2.0'), 3, false);
            // Writes on one connection are handled in order: once "Station" is echoed, "Status" was seen.
            await first.setValue(t.nodeAt(first, '0.2.4'), 'Studio 9', false);
            await t.waitFor('the Station echo', () => t.valueAt(second, '0.2.4') === 'Studio 9');
            assert.strictEqual(t.valueAt(second, '0.2.0'), 0);
            assert.ok(!host.has('SEND 020000'), 'Status forwarded');
            assert.ok(host.has(`SEND 020400 0 ${hex('Studio 9')}`));
        });

        await r.check('"Connect" with a text and "Record" with true reach the instance', async () => {
            const { ParameterType } = t.ep.Model;
            const connect = await first.invoke(t.nodeAt(first, '0.1.2'),
                { type: ParameterType.String, value: 'sip:studio@192.0.2.7' });
            const record = await first.invoke(t.nodeAt(first, '0.1.5'), { type: ParameterType.Boolean, value: true });
            for (const request of [connect, record])
                if (request.response)
                    request.response.catch(() => {}); // no invocation result is sent
            await t.waitFor('Connect', () => host.has(`SEND 010200 0 ${hex('sip:studio@192.0.2.7')}`));
            await t.waitFor('Record', () => host.has('SEND 010500 1 '));
        });

        await r.check('values reported by the instance reach every consumer', async () => {
            // The consumer library keeps octets as a view into its receive buffer, which is reused:
            // take them when they arrive.
            const vu = new Map();
            for (const c of [first, second])
                await c.subscribe(t.nodeAt(c, '0.2.8'), (n) => vu.set(c, Buffer.from(n.contents.value).toString('hex')));
            host.send('value 000500 0 Studio One');
            host.send('octets 020800 0a0b0c0d0e0f10');
            host.send('value 020700 42');
            for (const c of [first, second]) {
                await t.waitFor('name', () => t.valueAt(c, '0.0.5') === 'Studio One');
                await t.waitFor('VU bytes', () => vu.get(c) === '0a0b0c0d0e0f');
                await t.waitFor('live jitter buffer', () => t.valueAt(c, '0.2.7') === 42);
            }
        });

        await first.disconnect();
        await second.disconnect();
        first = second = undefined;

        await r.check('a consumer that never reads is dropped; the others keep being served', async () => {
            const stalled = net.connect(port, '127.0.0.1');
            stalled.on('error', () => {});
            stalled.pause();
            const reader = net.connect(port, '127.0.0.1');
            reader.on('error', () => {});
            let tail = Buffer.alloc(0);
            let received = 0;
            reader.on('data', (d) => {
                received += d.length;
                tail = Buffer.concat([tail, d]).slice(-4096);
            });
            await new Promise((resolve) => reader.once('connect', resolve));
            await t.waitFor('both connected', () => host.lines.filter((l) => l.startsWith('ADDED ')).length === 4);
            const before = rss(host.pid);
            host.send(`flood 020900 150000 ${'x'.repeat(200)}`);
            await t.waitFor('the flood', () => host.has('FLOODED'), 60000);
            const after = rss(host.pid);
            console.log(`       host RSS ${before} kB before, ${after} kB after 150000 updates; ` +
                `reader got ${received} bytes`);
            host.send('clients');
            await t.waitFor('the count', () => host.has('CLIENTS'));
            assert.strictEqual(host.lines.find((l) => l.startsWith('CLIENTS')), 'CLIENTS 1');
            host.send('value 020900 0 final-marker');
            await t.waitFor('the last value', () => tail.includes('final-marker'));
            stalled.destroy();
            reader.destroy();
        });

        host.send('quit');
        await t.waitFor('the host to end', () => host.has('BLOCKS'));
        await r.check('no Ember+ memory left', () => {
            assert.strictEqual(host.lines.find((l) => l.startsWith('BLOCKS')), 'BLOCKS 0');
        });
    } catch (e) {
        await check('the test itself', () => {
            throw e;
        });
        r.failed++;
    } finally {
        for (const c of [first, second])
            if (c)
                c.discard();
        host.kill();
    }
    process.exit(r.failed > 0 ? 1 : 0);
}

main();
