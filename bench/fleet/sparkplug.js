// Two programs that speak Sparkplug B with the client that npm has.
//
//   sparkplug.js edge PORT   an edge node: publishes 10,000 values as its device's birth, and again at each
//                            "Node Control/Rebirth"; prints "ready"
//   sparkplug.js host PORT   a host application: requests the births, and prints each value
'use strict';

const mqtt = require('mqtt');
const sparkplug = require('sparkplug-client');
const payloads = require('sparkplug-payload').get('spBv1.0');

const [role, port] = process.argv.slice(2);
const url = `mqtt://127.0.0.1:${port}`;
const rebirth = {name: 'Node Control/Rebirth', type: 'Boolean'};

function pad(number, width) {
  return String(number).padStart(width, '0');
}

function runEdge() {
  const client = sparkplug.newClient({
    serverUrl: url, username: '', password: '', groupId: 'bench', edgeNode: 'edge', clientId: 'edge', version: 'spBv1.0'});
  function giveBirth() {
    const metrics = [];
    for (let group = 0; group < 10; group++) {
      for (let item = 0; item < 1000; item++) {
        metrics.push({name: `group_${pad(group, 3)}/item_${pad(item, 4)}`, type: 'Int32', value: item});
      }
    }
    client.publishNodeBirth({timestamp: Date.now(), metrics: [{...rebirth, value: false}]});
    client.publishDeviceBirth('device', {timestamp: Date.now(), metrics});
  }
  client.on('birth', () => {
    giveBirth();
    console.log('ready');
  });
  client.on('ncmd', giveBirth);
  process.on('SIGTERM', () => process.exit(0));
}

function runHost() {
  const client = mqtt.connect(url, {clientId: 'host'});
  const lines = [];
  client.on('connect', () => client.subscribe(['spBv1.0/bench/NBIRTH/#', 'spBv1.0/bench/DBIRTH/#'], () => {
    const command = {timestamp: Date.now(), metrics: [{...rebirth, value: true}]};
    client.publish('spBv1.0/bench/NCMD/edge', Buffer.from(payloads.encodePayload(command)));
  }));
  client.on('message', (topic, payload) => {
    if (!topic.includes('/DBIRTH/')) {
      return;
    }
    for (const metric of payloads.decodePayload(payload).metrics) {
      lines.push(`${metric.name} ${metric.value}\n`);
    }
    process.stdout.write(lines.join(''));
    client.end();
  });
}

if (role === 'edge') {
  runEdge();
} else {
  runHost();
}
