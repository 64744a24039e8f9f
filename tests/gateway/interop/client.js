// A client of mqtt.js that reads, stores and watches values of a device by hand-written JSON.
// client.js PORT TOPICS SERVER
'use strict';

const mqtt = require('mqtt');

const [port, topics, server] = process.argv.slice(2);
const response = `${topics}/rsp/js/one`;
const client = mqtt.connect({host: '127.0.0.1', port: Number(port), protocolVersion: 5, clientId: 'mqtt-js'});
const waiting = new Map();
let number = 0;

function request(verb, fields) {
  const correlation = String(++number);
  client.publish(`${topics}/req/${verb}/js`, JSON.stringify({server, ...fields}), {
    qos: 1,
    properties: {
      responseTopic: response,
      correlationData: Buffer.from(correlation),
      messageExpiryInterval: 2,
      contentType: 'application/json',
    },
  });
  return new Promise((resolve) => waiting.set(correlation, resolve));
}

client.on('message', (topic, payload, packet) => {
  const value = JSON.parse(payload.toString());
  if (topic === response) {
    waiting.get(packet.properties.correlationData.toString())(value);
  } else {
    waiting.get('axis')(value);
  }
});

async function main() {
  await new Promise((resolve) => client.on('connect', resolve));
  await new Promise((resolve) => client.subscribe(response, {qos: 1}, resolve));
  console.log('get', (await request('get', {path: '/axis/position'})).value);
  console.log('set', (await request('set', {path: '/settings/stroke', value: 100})).value);
  console.log('refused', (await request('set', {path: '/settings/stroke', value: 100000})).reason);
  const axis = new Promise((resolve) => waiting.set('axis', resolve));
  client.subscribe(`${topics}/j/${server}/axis`);
  const {position, homed} = await axis;
  console.log('axis', position, homed);
  client.end();
}

main();
