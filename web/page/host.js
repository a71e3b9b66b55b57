// The one script an app page loads to run on the web host:
//   <script type="module" src="/velqor/host.js"></script>
// It starts the bridge (window.velqor.exec), the phone's system screens over
// the page, and the page API, which it sets as window.VelqorCamera before
// dispatching the window event `velqorready`. Pages that use modules can
// import /velqor/velqor-camera.js themselves instead.
import './bridge.js';
import './overlay.js';
import * as VelqorCamera from './velqor-camera.js';

window.VelqorCamera = VelqorCamera;
window.dispatchEvent(new Event('velqorready'));
