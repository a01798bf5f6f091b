// The whole program: a headless manager supervising one stand-in instance with an Ember+ port, and
// independent consumers (emberplus-connection) on that port. The stand-in logs every command it
// receives, which is how invocations and writes are seen to arrive.
// Run by CTest with VEXA_BIN_DIR and VEXA_SOURCE_DIR set; exits non-zero on any failure.
'use strict';

const assert = require('assert');
const fs = require('fs');
const net = require('net');
const os = require('os');
const path = require('path');
const { spawn } = require('child_process');
const t = require('./instance_tree');

const binDir = process.env.VEXA_BIN_DIR || path.join(__dirname, '..', '..', 'build-es', 'bin');
const manager = path.join(binDir, 'vexa-studio-manager');
const standIn = path.join(binDir, 'VexaStudio');

function freePort() {
    return new Promise((resolve) => {
        const probe = net.createServer();
        probe.listen(0, '127.0.0.1', () => {
            const { port } = probe.address();
            probe.close(() => resolve(port));
        });
    });
}

function canConnect(port) {
    return new Promise((resolve) => {
        const s = net.connect(port, '127.0.0.1');
        s.on('connect', () => {
            s.destroy();
            resolve(true);
        });
        s.on('error', () => resolve(false));
    });
}

async function main() {
    const r = t.runner();
    if (!fs.existsSync(manager) || !fs.existsSync(standIn)) {
        console.log(`FAIL!  ${manager} or ${standIn} is not built`);
        process.exit(1);
    }
    const work = fs.mkdtempSync(path.join(process.env.TMPDIR || os.tmpdir(), 'ember-full-'));
    const port = await freePort();
    const setup = path.join(work, 'studio-1.vxup');
    const standInLog = path.join(work, 'studio-1.log');
    fs.writeFileSync(setup, '[Instance]\nName=Studio One\nGroup=3\nStaticJitter=60\nDynamicJitter=40\n');
    const vxma = path.join(work, 'test.vxma');
    fs.writeFileSync(vxma, ['[Options]', 'EmberNetworkNIC=-1', '', '[Instances]', `Instance0=${setup}`,
        `Instance0_exe=${standIn}`, `Instance0_emberport=${port}`, 'Instance0_inactivitytime=5', ''].join('\n'));

    let managerOutput = '';
    const program = spawn(manager, ['--headless', '--vxma', vxma], { stdio: ['ignore', 'pipe', 'pipe'] });
    program.stdout.on('data', (d) => (managerOutput += d));
    program.stderr.on('data', (d) => (managerOutput += d));
    const logText = () => (fs.existsSync(standInLog) ? fs.readFileSync(standInLog, 'utf8') : '');

    let first;
    let second;
    const vu = new Map();
    const vuUpdates = new Map();
    try {
        let up = false;
        for (let i = 0; i < 300 && !up; i++) {
            up = await canConnect(port);
            if (!up)
                await t.delay(100);
        }
        assert.ok(up, `nothing listens on ${port}; manager said:\n${managerOutput.slice(-3000)}`);
        first = await t.connect(port);
        second = await t.connect(port);

        await r.check('the whole tree, element by element', () => t.checkTree(first, { values: false }));
        await second.expand(second.tree);

        await r.check('values the instance reports reach the consumers', async () => {
            for (const c of [first, second])
                await c.subscribe(t.nodeAt(c, '0.2.8'), (n) => {
                    vu.set(c, Buffer.from(n.contents.value));
                    vuUpdates.set(c, (vuUpdates.get(c) || 0) + 1);
                });
            for (const c of [first, second]) {
                await t.waitFor('the name', () => t.valueAt(c, '0.0.5') === 'Studio One', 15000);
                await t.waitFor('the live jitter buffer', () => t.valueAt(c, '0.2.7') === 60, 15000);
                // Microphone levels move between 25 and 55; byte 4 is the jitter buffer / 4.
                await t.waitFor('the VU bytes', () => vu.has(c) && vu.get(c)[0] >= 25 && vu.get(c)[4] === 15, 15000);
            }
        });

        await r.check('a write to "group" is echoed to the other consumer and reaches the instance', async () => {
            await first.setValue(t.nodeAt(first, '0.0.6'), 5, false);
            await t.waitFor('the echo', () => t.valueAt(second, '0.0.6') === 5);
            await t.waitFor('the command in the instance\'s log', () => /command 0x000600 value 5\b/.test(logText()));
        });

        await r.check('a write to read-only "Status" reaches nobody', async () => {
            await first.setValue(t.nodeAt(first, '0.2.0'), 3, false);
            await first.setValue(t.nodeAt(first, '0.2.4'), 'Studio 9', false);
            await t.waitFor('the Station command', () => /command 0x020400 value 0 text "Studio 9"/.test(logText()));
            assert.ok(!/command 0x020000/.test(logText()), 'Status reached the instance');
            await t.waitFor('the refusal in the manager\'s log', () => managerOutput.includes('onParameter is read only'));
        });

        await r.check('"Connect" with a text and "Record" with true reach the instance', async () => {
            const { ParameterType } = t.ep.Model;
            const requests = [
                await first.invoke(t.nodeAt(first, '0.1.2'), { type: ParameterType.String, value: 'sip:far@192.0.2.7' }),
                await first.invoke(t.nodeAt(first, '0.1.5'), { type: ParameterType.Boolean, value: true }),
            ];
            for (const request of requests)
                if (request.response)
                    request.response.catch(() => {}); // no invocation result is sent
            await t.waitFor('Connect', () => /command 0x010200 value 0 text "sip:far@192\.0\.2\.7"/.test(logText()));
            await t.waitFor('Record', () => /command 0x010500 value 1\b/.test(logText()));
        });

        await r.check('a consumer that never reads does not stop the others', async () => {
            const stalled = net.connect(port, '127.0.0.1');
            stalled.on('error', () => {});
            stalled.pause();
            await t.delay(500);
            const before = vuUpdates.get(second);
            await t.waitFor('updates to go on', () => vuUpdates.get(second) > before + 2, 15000);
            stalled.destroy();
        });
    } catch (e) {
        await r.check('the test itself', () => {
            throw e;
        });
    } finally {
        for (const c of [first, second])
            if (c)
                c.discard();
        program.kill('SIGTERM');
        await new Promise((resolve) => {
            const timer = setTimeout(() => {
                program.kill('SIGKILL');
                resolve();
            }, 10000);
            program.on('exit', () => {
                clearTimeout(timer);
                resolve();
            });
        });
    }
    await r.check('the manager ends without an Ember+ memory leak', () => {
        assert.ok(!/Ember Memory leakage/.test(managerOutput), 'leak reported');
    });
    fs.rmSync(work, { recursive: true, force: true });
    process.exit(r.failed > 0 ? 1 : 0);
}

main();
