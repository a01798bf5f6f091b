// The peer side of the provider benchmark: a provider on the npm package emberplus-connection
// serving the same instance tree, driven from stdin like provider_host (same commands and
// answers). Values go to "WarningMessage" (0.2.9) as stamped texts "#@<ns>.<sequence>", the
// time taken from process.hrtime (CLOCK_MONOTONIC, as the driver's).
//
// This provider sends a parameter's updates to the consumers that asked for its parent node's
// directory, which every consumer in the benchmark does during its walk.
'use strict';

const path = require('path');
const readline = require('readline');

const ep = require(path.join(__dirname, '..', 'node_modules', 'emberplus-connection'));
const { EmberServer, Model } = ep;
const { NumberedTreeNodeImpl: T, EmberNodeImpl, ParameterImpl, EmberFunctionImpl, FunctionArgumentImpl,
    ParameterType, ParameterAccess } = Model;

const R = ParameterAccess.Read;
const RW = ParameterAccess.ReadWrite;
const info = 'info';

function node(number, identifier, description, children) {
    const n = new T(number, new EmberNodeImpl(identifier, description), {});
    children.forEach((c, i) => {
        const child = c(i);
        n.children[i] = child;
    });
    return n;
}
const S = (id, d, access, value) => (i) => new T(i, new ParameterImpl(ParameterType.String, id, d, value,
    undefined, undefined, access));
const I = (id, d, access, value = 0, min, max) => (i) => new T(i, new ParameterImpl(ParameterType.Integer, id, d,
    value, max, min, access));
const E = (id, d, access, entries) => (i) => new T(i, new ParameterImpl(ParameterType.Integer, id, d, 0,
    undefined, undefined, access, undefined, entries.join('\n')));
const O = (id, d, length) => (i) => new T(i, new ParameterImpl(ParameterType.Octets, id, d, Buffer.alloc(length),
    undefined, undefined, R));
const F = (id, d, args = []) => (i) => new T(i, new EmberFunctionImpl(id, d,
    args.map(([type, name]) => new FunctionArgumentImpl(type, name))));
const N = (id, d, children) => (i) => node(i, id, d, children);

function instanceTree() {
    return {
        0: node(0, 'root', 'root', [
            N('identity', 'Unit features & software versions', [
                S('product', 'Product Name', R, 'Vexa Studio'),
                S('company', 'Manufacturer', R, 'Calder Wick'),
                S('serial', 'Serial Number', R, 'NA'),
                S('version', 'Software Version', R, '..'),
                S('features', 'Unit features', R, 'NA'),
                S('name', 'Instance name', RW, '..'),
                I('group', 'group tag number', RW, 1, 0, 12),
            ]),
            N('Commands', 'Commands For VX', [
                F('Disconnect', 'Disconnect'),
                F('Accept', 'Accept incoming call'),
                F('Connect', 'Connect / Call', [[ParameterType.String, 'ExtCon']]),
                F('Register', 'SIP:Register, RTP:Await Connection'),
                F('WarningAcknowledge', 'WarningAcknowledgement of Warning Dialog, false=Reject, true=Accept',
                    [[ParameterType.Integer, 'Result']]),
                F('Record', 'Start/Stop recording, false=Stop, true=Start', [[ParameterType.Boolean, 'Start']]),
                F('Play', 'Start/Stop file playing, false=Stop, true=Start', [[ParameterType.Boolean, 'Start']]),
                F('Restart', 'Restart Vexa Studio'),
            ]),
            N('Connection Info', 'Info about current connection', [
                E('Status', 'Connection status', R, ['Not Ready', 'Stand By', 'Rejected (na)', 'Calling',
                    'Connected (na)', 'Synchronized', 'Audio OK (na)', 'Incoming Call Waiting', 'UDP Warning',
                    'UDP Error']),
                S('Destination', 'Destination', R, '..'),
                S('Incoming format', 'Format of incoming stream', R, '..'),
                S('Outgoing format', 'Format of outgoing stream', R, '..'),
                S('Station', 'Name of the station chosen', RW, '..'),
                I('Jitter buffer', 'Nr of milliseconds of the static jitter buffer', RW),
                I('Dynamic jitter buffer', 'Nr of milliseconds of the dynamic jitter buffer', RW),
                I('Live jitter buffer', 'Current jitter buffer used (static+ evt dynamic)', R),
                O('Live Vu values',
                    'for simple display[mdVuI, pVuI, mdVuO, pVuO, pJitI, pJitO] = 0..60 overload = 80 ', 6),
                S('WarningMessage', 'Information that has to be acknowledged, string list sperated with ::', R,
                    '..'),
                S('Connection Time', 'Connection time counter', R, '..'),
                I('Dropped packets', info, R),
                I('Sequence errors', info, R),
                I('Buffer underrun', info, R),
                I('Buffer status', info, R),
                I('Peak jitter IN', info, R),
                I('Peak jitter OUT', info, R),
                O('Mic Vu', '[ channels valid, l,r,.. = 0..60  = -60 .. 0 dB, overload = 80 ', 9),
                O('Net Vu', '[ channels valid, l,r,.. = 0..60 = -60 .. 0 dB', 9),
            ]),
            N('SIP and STUN Info', 'Info about the SIP and STUN registration', [
                E('SIP Status', 'SIP status', R, ['Offline', 'Registering', 'Calling', 'Incoming call',
                    'Call in progress', 'Registered']),
                S('SIP URI', 'Own SIP URI', R, '..'),
                S('SIP Response', 'Status String', R, '..'),
                S('External IP', 'External IP Address', R, 'NA'),
            ]),
            N('Audio IO', 'Info about the Audio inputs and outputs', [
                S('Input', 'Name of input', R, '..'),
                S('Output', 'Name of output', R, '..'),
                S('Driver', 'Type of audio driver used', R, '..'),
            ]),
            N('Recording', 'Info about recording', [
                E('State', 'Info about recording state', R, ['Stop', 'Pause', 'Recording']),
                S('File name', 'File name of recording', R, '..'),
                S('Time', 'Recording time', R, '..'),
            ]),
            N('Play', 'Info about file playing', [
                E('Play State', 'Info about file playing state', R, ['Stop', 'Playing']),
                S('Played File', 'File name playing', R, '..'),
                S('Play Time', 'Playing time', R, '..'),
            ]),
            N('Remote', 'Remote parameters send with the stream to or from a connected Vexa', [
                E('TAVRO routing', 'State and Set', RW, ['Monitoring', 'On Air', 'Unused']),
                S('Station routing', 'Selected station unique id', R, '..'),
            ]),
        ]),
    };
}

const QUEUE_LIMIT = 256 * 1024;
const BURST = 32;
let sequence = 0;

const stamp = () => `#@${process.hrtime.bigint()}.${++sequence}`;
const say = (line) => process.stdout.write(line + '\n');

async function main() {
    const server = new EmberServer(0, '127.0.0.1');
    server.on('error', () => {});
    server.on('clientError', () => {});
    const tree = instanceTree();
    await server.init(tree);
    const warning = tree[0].children[2].children[9];
    const push = () => server.update(warning, { value: stamp() });
    const mostQueued = () => {
        let most = 0;
        for (const client of server._clients)
            most = Math.max(most, client.socket ? client.socket.writableLength : 0);
        return most;
    };

    function flood(ms) {
        const end = Date.now() + ms;
        let count = 0;
        const step = () => {
            if (Date.now() >= end) {
                const drain = () => (mostQueued() > 0 && Date.now() < end + 5000 ? setTimeout(drain, 5)
                    : say(`FLOODED ${count}`));
                drain();
                return;
            }
            if (mostQueued() <= QUEUE_LIMIT) {
                for (let i = 0; i < BURST; i++)
                    push();
                count += BURST;
                setImmediate(step);
            } else {
                setTimeout(step, 1);
            }
        };
        step();
    }

    function pace(count, ms) {
        let left = count;
        const timer = setInterval(() => {
            push();
            if (--left <= 0) {
                clearInterval(timer);
                say(`PACED ${count}`);
            }
        }, ms);
    }

    say(`PORT ${server._server.server.address().port}`);
    const lines = readline.createInterface({ input: process.stdin });
    lines.on('line', (line) => {
        const [verb, a, b] = line.trim().split(' ');
        if (verb === 'flood')
            flood(Number(a));
        else if (verb === 'pace')
            pace(Number(a), Number(b));
        else if (verb === 'quit')
            process.exit(0);
    });
    lines.on('close', () => process.exit(0));
}

main().catch((e) => {
    console.error(e);
    process.exit(1);
});
