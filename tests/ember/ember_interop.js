// Interoperability of our Ember+ layers with an independent implementation (npm
// emberplus-connection, installed in tests/peers):
//  1. packages made by our writer (ember_peer_tool write) are unframed and decoded by the peer;
//  2. GetDirectory, Invoke, parameter writes and a keep-alive encoded by the peer are decoded by
//     our reader (ember_peer_tool read).
// Run by CTest with VEXA_BIN_DIR and VEXA_SOURCE_DIR set; exits non-zero on any mismatch.
'use strict';

const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { execFileSync } = require('child_process');

const sourceDir = process.env.VEXA_SOURCE_DIR || path.join(__dirname, '..', '..');
const binDir = process.env.VEXA_BIN_DIR || path.join(sourceDir, 'build-ember', 'bin');
const tool = path.join(binDir, 'ember_peer_tool');
const peerPath = path.join(sourceDir, 'tests', 'peers', 'node_modules', 'emberplus-connection');
if (!fs.existsSync(peerPath)) {
    console.error(`emberplus-connection is not installed in tests/peers (run scripts/install-deps)`);
    process.exit(1);
}
const ep = require(peerPath);
const { Model } = ep;
// Commands and invocations are not re-exported by the package's index.
const Commands = require(path.join(peerPath, 'dist', 'model', 'Command'));
const Invocations = require(path.join(peerPath, 'dist', 'model', 'Invocation'));

const work = fs.mkdtempSync(path.join(os.tmpdir(), 'ember-interop-'));
let passed = 0;
let failed = 0;

function check(name, fn) {
    try {
        fn();
        passed++;
        console.log(`PASS   ${name}`);
    } catch (e) {
        failed++;
        console.log(`FAIL!  ${name}\n       ${e.message.split('\n').join('\n       ')}`);
    }
}

// Unframes a stream with the peer's codec; returns the decoded Glow roots and the keep-alives.
function peerDecode(stream) {
    const codec = new ep.S101Codec();
    const roots = [];
    const keepAlives = [];
    codec.on('emberPacket', (packet) => {
        const result = ep.berDecode(packet);
        assert.deepStrictEqual(result.errors, [], 'peer decoding errors');
        roots.push(result.value);
    });
    codec.on('keepaliveReq', () => keepAlives.push('request'));
    codec.on('keepaliveResp', () => keepAlives.push('response'));
    codec.dataIn(stream);
    return { roots, keepAlives };
}

function elements(root) {
    return Object.keys(root).map((k) => root[k]);
}

// --- 1. our writer, the peer's reader -------------------------------------------------------
execFileSync(tool, ['write', work]);

check('peer decodes our multi-package tree message', () => {
    const { roots } = peerDecode(fs.readFileSync(path.join(work, 'tree.s101')));
    assert.strictEqual(roots.length, 1, 'one message from five packages');
    const list = elements(roots[0]);
    const summary = list.map((e) => {
        const c = e.contents;
        const value = Buffer.isBuffer(c.value) ? c.value.toString('hex') : c.value;
        return [e.path, c.type, c.identifier, c.description, c.parameterType, value, c.access, c.minimum,
            c.maximum, c.enumeration, c.isOnline];
    });
    assert.deepStrictEqual(summary, [
        ['0', 'NODE', 'root', 'root', undefined, undefined, undefined, undefined, undefined, undefined, undefined],
        ['0.0.0', 'PARAMETER', 'product', 'Product Name', 'STRING', 'Vexa Studio', 'READ', undefined, undefined,
            undefined, undefined],
        ['0.0.6', 'PARAMETER', 'group', 'group tag number', 'INTEGER', 1, 'READ_WRITE', 0, 12, undefined, undefined],
        ['0.1.2', 'FUNCTION', 'Connect', 'Connect / Call', undefined, undefined, undefined, undefined, undefined,
            undefined, undefined],
        ['0.2.0', 'PARAMETER', 'Status', undefined, 'ENUM', 5, 'READ', undefined, undefined,
            'Not Ready\nStand By\nSynchronized', undefined],
        ['0.2.8', 'PARAMETER', 'Live Vu values', undefined, 'OCTETS', '003c00500000', undefined, undefined,
            undefined, undefined, undefined],
        ['0.3.200', 'PARAMETER', 'online', undefined, 'BOOLEAN', true, undefined, undefined, undefined, undefined,
            false],
    ]);
    assert.deepStrictEqual(list[3].contents.args.map((a) => [a.type, a.name]), [['STRING', 'ExtCon']]);
});

check('peer decodes our keep-alive request and response', () => {
    const { keepAlives } = peerDecode(fs.readFileSync(path.join(work, 'keepalive.s101')));
    assert.deepStrictEqual(keepAlives, ['request', 'response']);
});

// Our REAL form keeps the IEEE exponent although the mantissa is shifted; this peer does the
// same, while a strict X.690 reading of the same bytes (mantissa * 2^exponent) differs.
check('REAL: the peer reads our form as we do; a strict X.690 reading differs', () => {
    const stream = fs.readFileSync(path.join(work, 'real.s101'));
    const { roots } = peerDecode(stream);
    const peerValue = elements(roots[0])[0].contents.value;
    const contents = Buffer.from('090380', 'hex'); // UNIVERSAL 9, length 3, binary base 2
    const at = stream.indexOf(contents);
    assert.ok(at > 0, 'REAL contents found');
    const exponent = stream.readInt8(at + 3);
    const mantissa = stream.readUInt8(at + 4);
    const strict = mantissa * Math.pow(2, exponent);
    console.log(`       REAL 3.0 written as 80 ${exponent.toString(16).padStart(2, '0')} ` +
        `${mantissa.toString(16).padStart(2, '0')}: peer reads ${peerValue}, strict X.690 gives ${strict}`);
    assert.strictEqual(peerValue, 3);
    assert.strictEqual(strict, 6);
});

// --- 2. the peer's writer, our reader -------------------------------------------------------
function frames(rootElements) {
    const codec = new ep.S101Codec();
    const ber = ep.berEncode(rootElements, ep.Types.RootType.Elements);
    return Buffer.concat(codec.encodeBER(ber));
}

function ourRead(stream) {
    const file = path.join(work, 'request.s101');
    fs.writeFileSync(file, stream);
    const out = execFileSync(tool, ['read', file], { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
    return out.split('\n').filter((l) => l.length > 0);
}

function command(c) {
    return new Model.NumberedTreeNodeImpl(0, c);
}

function qualified(pathText, contents, children) {
    return new Model.QualifiedElementImpl(pathText, contents, children);
}

check('our reader decodes the peer\'s GetDirectory at the root', () => {
    assert.deepStrictEqual(ourRead(frames([command(new Commands.GetDirectoryImpl())])),
        ['C  number=32 mask=-1']);
});

check('our reader decodes the peer\'s GetDirectory on a qualified node with a field mask', () => {
    const node = qualified('0.2', new Model.EmberNodeImpl(), [command(new Commands.GetDirectoryImpl(Commands.FieldFlags.Tree))]);
    assert.deepStrictEqual(ourRead(frames([node])), ['C 0.2 number=32 mask=3']);
});

check('our reader decodes the peer\'s Invoke with a string and with a boolean argument', () => {
    const invoke = (id, args) => command(new Commands.InvokeImpl(new Invocations.InvocationImpl(id, args)));
    const connect = qualified('0.1.2', new Model.EmberFunctionImpl(),
        [invoke(7, [{ type: Model.ParameterType.String, value: 'sip:studio@example.org' }])]);
    const record = qualified('0.1.5', new Model.EmberFunctionImpl(),
        [invoke(8, [{ type: Model.ParameterType.Boolean, value: true }])]);
    assert.deepStrictEqual(ourRead(Buffer.concat([frames([connect]), frames([record])])), [
        'C 0.1.2 number=33 mask=0 invocation=7 args=[str:\'sip:studio@example.org\']',
        'C 0.1.5 number=33 mask=0 invocation=8 args=[bool:1]',
    ]);
});

check('our reader decodes the peer\'s parameter writes', () => {
    const write = (pathText, type, value) => {
        const parameter = new Model.ParameterImpl(type, undefined, undefined, value);
        return qualified(pathText, parameter);
    };
    const lines = ourRead(Buffer.concat([
        frames([write('0.0.6', Model.ParameterType.Integer, 5)]),
        frames([write('0.2.4', Model.ParameterType.String, 'Studio 2')]),
        frames([write('0.3.1', Model.ParameterType.Boolean, false)]),
        frames([write('0.2.8', Model.ParameterType.Octets, Buffer.from([1, 0, 2]))]),
    ]));
    // The peer also sends the parameter's type [13]; the value is what the provider acts on.
    assert.deepStrictEqual(lines.map((l) => l.replace(/ fields=\w+/, '').replace(/ type=\d+/, '')), [
        'P 0.0.6 value=int:5',
        'P 0.2.4 value=str:\'Studio 2\'',
        'P 0.3.1 value=bool:0',
        'P 0.2.8 value=oct:010002',
    ]);
    assert.ok(lines.every((l) => /fields=(4|804)\b/.test(l)), lines.join('\n'));
});

check('our reader hands the peer\'s keep-alive request to the package hook', () => {
    const codec = new ep.S101Codec();
    assert.deepStrictEqual(ourRead(codec.keepAliveRequest()), ['K 000e0101']);
});

fs.rmSync(work, { recursive: true, force: true });
console.log(`Totals: ${passed} passed, ${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
