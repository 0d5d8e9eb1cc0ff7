// The WebSocket to clipboard-host: one JSON request per text frame, replies matched to their
// requests, notifications and stray errors handed on as events, and a reconnect whenever the
// host goes away.

const UID = 'browser-front-end';

export class HostConnection extends EventTarget {
  #url;
  #socket = null;
  #sent = 0;            // messages sent on this socket: the host numbers its error objects by them
  #pending = new Map(); // requestid -> {resolve, reject, line}
  #nextId = 1;
  #retryDelay = 250;
  #timer = null;

  constructor(url) {
    super();
    this.#url = url;
  }

  get isOpen() {
    return this.#socket !== null && this.#socket.readyState === WebSocket.OPEN;
  }

  connect() {
    clearTimeout(this.#timer);
    this.#timer = null;
    let socket;
    try {
      socket = new WebSocket(this.#url);
    } catch (error) {
      this.#emit('problem', `Cannot open the connection: ${error.message}`);
      this.#scheduleReconnect();
      return;
    }
    this.#socket = socket;
    this.#sent = 0;
    this.#emit('state', 'connecting');
    socket.addEventListener('open', () => {
      this.#retryDelay = 250;
      this.#emit('state', 'open');
    });
    socket.addEventListener('message', (event) => this.#onMessage(event.data));
    socket.addEventListener('close', (event) => {
      if (this.#socket !== socket) return;
      this.#socket = null;
      const why = event.code === 1006 ? 'the host is not reachable' : `closed with ${event.code}${event.reason ? ` (${event.reason})` : ''}`;
      for (const [, request] of this.#pending) request.reject(new Error(`Connection lost: ${why}`));
      this.#pending.clear();
      this.#emit('state', 'closed', why);
      this.#scheduleReconnect();
    });
  }

  // Sends one request and resolves with the service's reply object.
  request(kind, fields = {}, mode = undefined) {
    if (!this.isOpen) {
      return Promise.reject(new Error('Not connected to the clipboard host'));
    }
    const requestid = `${kind}-${this.#nextId++}`;
    const message = { kind, request: { requestid, uid: UID, ...fields } };
    if (mode !== undefined) message.mode = mode;
    return new Promise((resolve, reject) => {
      this.#pending.set(requestid, { resolve, reject, line: ++this.#sent });
      this.#socket.send(JSON.stringify(message));
    });
  }

  #scheduleReconnect() {
    if (this.#timer !== null) return;
    const delay = this.#retryDelay;
    this.#retryDelay = Math.min(this.#retryDelay * 2, 4000);
    this.#timer = setTimeout(() => this.connect(), delay);
  }

  #onMessage(text) {
    let message;
    try {
      message = JSON.parse(text);
    } catch {
      this.#emit('problem', `The host sent something that is not JSON: ${String(text).slice(0, 120)}`);
      return;
    }
    if (message.type === 'reply') {
      const id = message.reply?.requestid;
      const request = this.#pending.get(id);
      if (!request) {
        this.#emit('problem', `A reply nobody asked for (${message.kind}, "${id}")`);
        return;
      }
      this.#pending.delete(id);
      request.resolve(message.reply);
    } else if (message.type === 'notification') {
      this.#emit('notification', message.notification);
    } else if (message.type === 'error') {
      for (const [id, request] of this.#pending) {
        if (request.line === message.line || (message.requestid && message.requestid === id)) {
          this.#pending.delete(id);
          request.reject(new Error(message.error));
          return;
        }
      }
      this.#emit('problem', `The host reported: ${message.error}`);
    } else {
      this.#emit('problem', `The host sent a message of unknown type "${message.type}"`);
    }
  }

  #emit(type, detail, extra) {
    this.dispatchEvent(new CustomEvent(type, { detail: extra === undefined ? detail : { state: detail, why: extra } }));
  }
}
