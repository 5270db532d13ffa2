// Serves a camera's objects with the npm package net-snmp: node agent.js PORT OBJECTS. The file is described in
// objects.h.
'use strict';
const fs = require('fs');
const snmp = require('net-snmp');
const dbus = require('dbus-next');

const [port, path] = process.argv.slice(2);
const bus = dbus.sessionBus({ busAddress: process.env.TAVOS_BUS_ADDRESS });
const types = { i: snmp.ObjectType.Integer, g: snmp.ObjectType.Gauge, s: snmp.ObjectType.OctetString };
const services = {};

async function call(service, member, ...args) {
  if (!services[service]) {
    const object = await bus.getProxyObject(`org.tavos.${service}`, `/org/tavos/${service}`);
    services[service] = object.getInterface(`org.tavos.${service}`);
  }
  return services[service][member](...args);
}

function parse(line) {
  const [oid, type, value, calls, result, set] = line.split('\t');
  const argument = (text) => (text[0] === 'i' ? Number(text.slice(2)) : text.slice(2));
  return {
    oid, type, result, set,
    value: type === 's' ? Buffer.from(value, 'hex') : Number(value),
    calls: calls === '-' ? [] : calls.split(';').map((text) => {
      const [service, member, ...args] = text.split(' ');
      return [service, member, ...args.map(argument)];
    }),
  };
}

async function refresh(object, node) {
  let answer;
  for (const one of object.calls) answer = await call(...one);
  if (object.result === 'number') node.value = Number(answer);
  if (object.result.startsWith('bit:')) node.value = Buffer.from([answer ? Number(object.result.slice(4)) : 0]);
}

// The package decodes a SET's octets as UTF-8: an octet above 7f arrives, and is answered, as U+FFFD.
async function command(object, text) {
  const octets = [...text].map((character) => character.codePointAt(0));
  if (object.set === 'position' && octets[0] === 2) {
    await call('Pan1', 'SetPositionAtSpeed', (octets[2] * 256 + octets[3]) * 10, octets[1] / 127, 300);
  } else if (object.set === 'control' && octets[0] & 1) {
    const on = octets[1] > 0x7f;
    await call('Relay3', on ? 'SetRelay' : 'ClearRelay', 'BNK2', 0, on ? 1 : 0);
  }
}

const failed = { errorStatus: snmp.ErrorStatus.GeneralError, type: snmp.ObjectType.Null, value: null };
const agent = snmp.createAgent({ port: Number(port), address: '127.0.0.1' }, (error) => {
  if (error) console.error(error);
});
agent.getAuthorizer().addCommunity('public');
agent.getAuthorizer().addCommunity('private');
const mib = agent.getMib();
const objects = {};

function handle(request) {
  const object = objects[request.oid];
  if (!object || request.testSet) return request.done();
  const work = request.commitSet ? command(object, request.setValue)
    : object.calls.length ? refresh(object, request.instanceNode) : null;
  if (!work) return request.done();
  return work.then(() => request.done(), (error) => {
    console.error(`${request.oid}: ${error}`);
    request.done(failed);
  });
}

// One provider for all instances with the same parent: the package's scalars have only the instance 0.
function provide(object) {
  const parent = object.oid.slice(0, object.oid.lastIndexOf('.'));
  if (!mib.getProvider(parent)) {
    const maxAccess = snmp.MaxAccess[object.set === '-' ? 'read-only' : 'read-write'];
    const type = snmp.MibProviderType.Scalar;
    const provider = { name: parent, type, oid: parent, scalarType: types[object.type], maxAccess, handler: handle };
    agent.registerProvider(provider);
    mib.addProviderToNode(provider);
  }
  mib.addNodesForOid(object.oid);
  const node = mib.lookup(object.oid);
  node.valueType = types[object.type];
  node.value = object.value;
}

for (const line of fs.readFileSync(path, 'utf8').trimEnd().split('\n')) {
  const object = parse(line);
  objects[object.oid] = object;
  provide(object);
}
console.log('ready');
