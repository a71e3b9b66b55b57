// Starts a host with a command left open and a device action still queued,
// prints what identifies it, and ends without stopping it.
import {startHost} from '../index.js';

const host = await startHost();
host.device.tapAlert('cancel');  // never shown: stays queued
await fetch(host.origin + '/api/call', {
  method: 'POST', headers: {'X-Velqor-Request': '1', 'Content-Type': 'application/json'},
  body: JSON.stringify({operation: 'takePicture', args: [50, 1, 0]}),
});
process.stdout.write(JSON.stringify({pid: host.pid, temporaryDirectory: host.temporaryDirectory, origin: host.origin}));
