// The names of access points and of their networks, by address.
import {askAll} from './server.js';

class Directory extends EventTarget {
  aps = [];
  #names = new Map();  // of access points, by MAC address
  #ssids = new Map();  // by BSSID
  #loading = null;
  #stale = 0;

  // Reads the access points, their states and loads.
  load() {
    this.#loading ??= this.#read().finally(() => { this.#loading = null; });
    return this.#loading;
  }

  nameOf(ap) {
    return this.#names.get(ap) ?? ap;
  }

  ssidOf(bssid) {
    return this.#ssids.get(bssid) ?? bssid;
  }

  get ssids() {
    return [...new Set(this.#ssids.values())].sort();
  }

  // An access point that comes or goes is read again, once for all that do within a second.
  event({kind}) {
    if (kind.startsWith('access-point-') && this.#stale === 0) {
      this.#stale = setTimeout(() => {
        this.#stale = 0;
        this.load().catch(() => {});  // the connection's state is shown already
      }, 1000);
    }
  }

  async #read() {
    this.aps = await askAll('/access-points');
    for (const {ap, name, vaps} of this.aps) {
      this.#names.set(ap, name ?? ap);
      for (const {bssid, ssid} of vaps) {
        this.#ssids.set(bssid, ssid ?? bssid);
      }
    }
    this.dispatchEvent(new Event('change'));
  }
}

export const directory = new Directory();
