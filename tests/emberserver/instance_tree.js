// The instance tree as a consumer must see it, element by element and in number order, and the
// helpers that the consumer tests share: connecting with the independent consumer library
// (emberplus-connection from tests/peers), walking the whole tree and waiting for values.
'use strict';

const assert = require('assert');
const fs = require('fs');
const path = require('path');

const sourceDir = process.env.VEXA_SOURCE_DIR || path.join(__dirname, '..', '..');
const peerPath = path.join(sourceDir, 'tests', 'peers', 'node_modules', 'emberplus-connection');
if (!fs.existsSync(peerPath)) {
    console.error('emberplus-connection is not installed in tests/peers (run scripts/install-deps)');
    process.exit(1);
}
const ep = require(peerPath);

const R = 'READ';
const RW = 'READ_WRITE';
const info = 'info';
// [path, identifier, description, kind, parameter type, access, value, minimum, maximum,
//  enumeration, function arguments]
const N = (p, id, d) => [p, id, d, 'NODE'];
const S = (p, id, d, access, value) => [p, id, d, 'PARAMETER', 'STRING', access, value];
const I = (p, id, d, access) => [p, id, d, 'PARAMETER', 'INTEGER', access, 0];
const E = (p, id, d, access, entries) => [p, id, d, 'PARAMETER', 'ENUM', access, 0, undefined, undefined,
    entries.join('\n')];
const O = (p, id, d, length) => [p, id, d, 'PARAMETER', 'OCTETS', R, '00'.repeat(length)];
const F = (p, id, d, args) => [p, id, d, 'FUNCTION', undefined, undefined, undefined, undefined, undefined,
    undefined, args];

const table = [
    N('0', 'root', 'root'),
    N('0.0', 'identity', 'Unit features & software versions'),
    S('0.0.0', 'product', 'Product Name', R, 'Vexa Studio'),
    S('0.0.1', 'company', 'Manufacturer', R, 'Calder Wick'),
    S('0.0.2', 'serial', 'Serial Number', R, 'NA'),
    S('0.0.3', 'version', 'Software Version', R, '..'),
    S('0.0.4', 'features', 'Unit features', R, 'NA'),
    S('0.0.5', 'name', 'Instance name', RW, '..'),
    ['0.0.6', 'group', 'group tag number', 'PARAMETER', 'INTEGER', RW, 1, 0, 12],
    N('0.1', 'Commands', 'Commands For VX'),
    F('0.1.0', 'Disconnect', 'Disconnect'),
    F('0.1.1', 'Accept', 'Accept incoming call'),
    F('0.1.2', 'Connect', 'Connect / Call', [['STRING', 'ExtCon']]),
    F('0.1.3', 'Register', 'SIP:Register, RTP:Await Connection'),
    F('0.1.4', 'WarningAcknowledge', 'WarningAcknowledgement of Warning Dialog, false=Reject, true=Accept',
        [['INTEGER', 'Result']]),
    F('0.1.5', 'Record', 'Start/Stop recording, false=Stop, true=Start', [['BOOLEAN', 'Start']]),
    F('0.1.6', 'Play', 'Start/Stop file playing, false=Stop, true=Start', [['BOOLEAN', 'Start']]),
    F('0.1.7', 'Restart', 'Restart Vexa Studio'),
    N('0.2', 'Connection Info', 'Info about current connection'),
    E('0.2.0', 'Status', 'Connection status', R, ['Not Ready', 'Stand By', 'Rejected (na)', 'Calling',
        'Connected (na)', 'Synchronized', 'Audio OK (na)', 'Incoming Call Waiting', 'UDP Warning', 'UDP Error']),
    S('0.2.1', 'Destination', 'Destination', R, '..'),
    S('0.2.2', 'Incoming format', 'Format of incoming stream', R, '..'),
    S('0.2.3', 'Outgoing format', 'Format of outgoing stream', R, '..'),
    S('0.2.4', 'Station', 'Name of the station chosen', RW, '..'),
    I('0.2.5', 'Jitter buffer', 'Nr of milliseconds of the static jitter buffer', RW),
    I('0.2.6', 'Dynamic jitter buffer', 'Nr of milliseconds of the dynamic jitter buffer', RW),
    I('0.2.7', 'Live jitter buffer', 'Current jitter buffer used (static+ evt dynamic)', R),
    O('0.2.8', 'Live Vu values',
        'for simple display[mdVuI, pVuI, mdVuO, pVuO, pJitI, pJitO] = 0..60 overload = 80 ', 6),
    S('0.2.9', 'WarningMessage', 'Information that has to be acknowledged, string list sperated with ::', R, '..'),
    S('0.2.10', 'Connection Time', 'Connection time counter', R, '..'),
    I('0.2.11', 'Dropped packets', info, R),
    I('0.2.12', 'Sequence errors', info, R),
    I('0.2.13', 'Buffer underrun', info, R),
    I('0.2.14', 'Buffer status', info, R),
    I('0.2.15', 'Peak jitter IN', info, R),
    I('0.2.16', 'Peak jitter OUT', info, R),
    O('0.2.17', 'Mic Vu', '[ channels valid, l,r,.. = 0..60  = -60 .. 0 dB, overload = 80 ', 9),
    O('0.2.18', 'Net Vu', '[ channels valid, l,r,.. = 0..60 = -60 .. 0 dB', 9),
    N('0.3', 'SIP and STUN Info', 'Info about the SIP and STUN registration'),
    E('0.3.0', 'SIP Status', 'SIP status', R, ['Offline', 'Registering', 'Calling', 'Incoming call',
        'Call in progress', 'Registered']),
    S('0.3.1', 'SIP URI', 'Own SIP URI', R, '..'),
    S('0.3.2', 'SIP Response', 'Status String', R, '..'),
    S('0.3.3', 'External IP', 'External IP Address', R, 'NA'),
    N('0.4', 'Audio IO', 'Info about the Audio inputs and outputs'),
    S('0.4.0', 'Input', 'Name of input', R, '..'),
    S('0.4.1', 'Output', 'Name of output', R, '..'),
    S('0.4.2', 'Driver', 'Type of audio driver used', R, '..'),
    N('0.5', 'Recording', 'Info about recording'),
    E('0.5.0', 'State', 'Info about recording state', R, ['Stop', 'Pause', 'Recording']),
    S('0.5.1', 'File name', 'File name of recording', R, '..'),
    S('0.5.2', 'Time', 'Recording time', R, '..'),
    N('0.6', 'Play', 'Info about file playing'),
    E('0.6.0', 'Play State', 'Info about file playing state', R, ['Stop', 'Playing']),
    S('0.6.1', 'Played File', 'File name playing', R, '..'),
    S('0.6.2', 'Play Time', 'Playing time', R, '..'),
    N('0.7', 'Remote', 'Remote parameters send with the stream to or from a connected Vexa'),
    E('0.7.0', 'TAVRO routing', 'State and Set', RW, ['Monitoring', 'On Air', 'Unused']),
    S('0.7.1', 'Station routing', 'Selected station unique id', R, '..'),
];

function valueOf(c) {
    return Buffer.isBuffer(c.value) ? c.value.toString('hex') : c.value;
}

// One row per element of the consumer's tree, depth first in number order, in the table's form.
function rowsOf(collection, prefix = '') {
    const rows = [];
    const nodes = Object.values(collection || {}).sort((a, b) => a.number - b.number);
    for (const n of nodes) {
        const p = prefix + n.number;
        const c = n.contents;
        const row = [p, c.identifier, c.description, c.type];
        if (c.type === 'PARAMETER')
            row.push(c.parameterType, c.access, valueOf(c), c.minimum, c.maximum, c.enumeration);
        if (c.type === 'FUNCTION')
            row.push(undefined, undefined, undefined, undefined, undefined, undefined,
                c.args ? c.args.map((a) => [a.type, a.name]) : undefined);
        while (row.length > 4 && row[row.length - 1] === undefined)
            row.pop();
        rows.push(row);
        rows.push(...rowsOf(n.children, p + '.'));
    }
    return rows;
}

// Walks the tree and compares it, element by element, with the table.
// With values false the values are left out (a running instance has changed them).
async function checkTree(client, { values = true } = {}) {
    await client.expand(client.tree);
    const rows = rowsOf(client.tree);
    if (!values)
        for (const row of rows) {
            if (row[3] === 'PARAMETER' && row.length > 6)
                row[6] = undefined;
            while (row.length > 4 && row[row.length - 1] === undefined)
                row.pop();
        }
    const expected = table.map((row) => {
        const r = row.slice();
        if (!values && r[3] === 'PARAMETER' && r.length > 6)
            r[6] = undefined;
        while (r.length > 4 && r[r.length - 1] === undefined)
            r.pop();
        return r;
    });
    for (let i = 0; i < Math.max(rows.length, expected.length); i++)
        assert.deepStrictEqual(rows[i], expected[i], `element ${i}`);
}

async function connect(port) {
    const client = new ep.EmberClient('127.0.0.1', port, 5000, false);
    client.on('error', () => {}); // invocations get no result: their requests time out
    const error = await client.connect();
    if (error)
        throw error;
    return client;
}

function nodeAt(client, p) {
    let node = { children: client.tree };
    for (const n of p.split('.'))
        node = node.children && node.children[Number(n)];
    assert.ok(node, `no element at ${p}`);
    return node;
}

function delay(ms) {
    return new Promise((resolve) => setTimeout(resolve, ms));
}

// Polls until test() is true, at most timeoutMs.
async function waitFor(what, test, timeoutMs = 10000) {
    const end = Date.now() + timeoutMs;
    while (Date.now() < end) {
        if (test())
            return;
        await delay(25);
    }
    throw new Error(`timed out waiting for ${what}`);
}

function valueAt(client, p) {
    return valueOf(nodeAt(client, p).contents);
}

// Reporting in the form the other Node tests use.
function runner() {
    let failed = 0;
    return {
        async check(name, fn) {
            try {
                await fn();
                console.log(`PASS   ${name}`);
            } catch (e) {
                failed++;
                console.log(`FAIL!  ${name}\n       ${String(e.stack || e).split('\n').join('\n       ')}`);
            }
        },
        get failed() {
            return failed;
        },
    };
}

module.exports = { ep, table, checkTree, connect, nodeAt, valueAt, waitFor, delay, runner };
