// web/bridge-library.js - what web/bridge.cpp calls in JavaScript: the worker's hooks for a load's
// progress and a conversion's output, set on the module by web/worker.js.
mergeInto(LibraryManager.library, {
  web_progress: function (line, lines) {
    if (Module['navoProgress']) Module['navoProgress'](line, lines);
  },
  // A copy of the bytes, for the bridge's buffer is written again; 0 takes them, 1 refuses.
  web_output: function (bytes, size) {
    return Module['navoOutput'] ? Module['navoOutput'](HEAPU8.slice(bytes, bytes + size)) : 1;
  },
});
