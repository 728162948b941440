// web/worker.js - the page's worker: the WebAssembly module (libnavofront and web/bridge.cpp) runs
// here, off the page's thread. The page hands it the file the user chose and asks for a summary, a
// document, a page of records, a search or an export; each answer names the request it answers.
// The file is held in the module's memory file system, read once per file; nothing is stored
// anywhere else, and nothing leaves the browser.
'use strict';

let navo = null;        // the module, once it is ready
const waiting = [];     // requests that came before it was
let request = 0;        // the request being served, for its progress
let input = null;       // the path of the file in the memory file system
let inputs = 0;

const formats = { jsonl: 0, csv: 2 };

function answer(id, body) {
  postMessage(Object.assign({ id: id }, body));
}

function progress(line, lines) {
  postMessage({ id: request, progress: [line, lines] });
}

// The memory file system grows a file by an eighth of its size past 1 MiB, each time into a new
// array the browser zero-fills, and copies it over: the spool file of a 100,000-record document
// (31 MB) cost a third of the load's time that way. Here a file grows by doubling, and a spool
// file that passes 1 MiB goes at once to the size of the file being read: a block's records take
// no more room in their spool file than in the file they come from (each field there has a line
// of its own), so it never grows again.
let spoolReserve = 0;
function growFilesAtOnce(FS) {
  const memfs = FS.lookupPath('/').node.mount.type;
  if (typeof memfs.expandFileStorage !== 'function') return;
  memfs.expandFileStorage = function (node, capacity) {
    const before = node.contents ? node.contents.length : 0;
    if (before >= capacity) return;
    let size = Math.max(capacity, before * 2, 4096);
    if (capacity > (1 << 20) && before < spoolReserve) size = Math.max(size, spoolReserve);
    const grown = new Uint8Array(size);
    if (node.usedBytes > 0) grown.set(node.contents.subarray(0, node.usedBytes), 0);
    node.contents = grown;
  };
}

function call(name, types, args) {
  return JSON.parse(navo.ccall(name, 'string', types, args));
}

// The user's file into the memory file system: one read of the whole file, owned by the file
// system without a copy. The file before it goes.
function take(file) {
  const bytes = new Uint8Array(new FileReaderSync().readAsArrayBuffer(file));
  navo.ccall('web_close', null, [], []);
  if (input !== null) navo.FS.unlink(input);
  input = '/input/' + (++inputs) + '.navo';
  navo.FS.writeFile(input, bytes, { canOwn: true });
  spoolReserve = bytes.length;
}

function serve(message) {
  request = message.id;
  try {
    switch (message.op) {
      case 'open':
        try {
          take(message.file);
        } catch (error) {
          // The browser could not read the file (moved, removed, unreadable): the module is whole.
          answer(message.id, { failure: String(error && error.message ? error.message : error) });
          return;
        }
        answer(message.id, { summary: call('web_summary', ['string', 'number', 'number'], [input, message.encoding, 0]) });
        break;
      case 'summary':
        answer(message.id, {
          summary: call('web_summary', ['string', 'number', 'number'], [input, message.encoding, message.checks ? 1 : 0]),
        });
        break;
      case 'document':
        answer(message.id, {
          document: call('web_document', ['string', 'number', 'number', 'number'],
                         [input, message.encoding, message.number, message.count]),
        });
        break;
      case 'records':
        answer(message.id, {
          records: call('web_records', ['number', 'number', 'number'], [message.block, message.first, message.count]),
        });
        break;
      case 'find':
        answer(message.id, { find: call('web_find', ['string', 'number', 'string'], [input, message.encoding, message.value]) });
        break;
      case 'export': {
        const pieces = [];
        navo.navoOutput = function (bytes) { pieces.push(bytes); return 0; };
        const result = call('web_convert', ['string', 'number', 'number'], [input, message.encoding, formats[message.format]]);
        navo.navoOutput = null;
        const type = message.format === 'csv' ? 'text/csv' : 'application/jsonl';
        answer(message.id, {
          exported: result,
          blob: result.message.code === 0 ? new Blob(pieces, { type: type }) : null,
        });
        break;
      }
      default:
        answer(message.id, { failure: 'unknown request ' + message.op });
    }
  } catch (error) {
    // The module aborted (memory exhausted): it cannot go on, and the page makes a new worker.
    answer(message.id, { failure: String(error && error.message ? error.message : error), fatal: true });
  }
}

onmessage = function (event) {
  if (navo === null) waiting.push(event.data);
  else serve(event.data);
};

navoModule({
  navoProgress: progress,
  print: function () {},
  printErr: function () {},
}).then(function (module) {
  navo = module;
  navo.FS.mkdir('/input');
  growFilesAtOnce(navo.FS);
  postMessage({ ready: true });
  if (waiting.length === 0) {
    navo.ccall('web_warm_up', null, ['string', 'number', 'number'], ['/tmp/warm-up.navo', 10000, 3]);
    try { navo.FS.unlink('/tmp/warm-up.navo'); } catch (error) { /* not written */ }
  }
  while (waiting.length > 0) serve(waiting.shift());
}, function (error) {
  postMessage({ broken: String(error && error.message ? error.message : error) });
});
