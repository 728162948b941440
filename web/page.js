// web/page.js - the page's own script: the user's file goes to the worker (made from the script
// the page carries, as a Blob), the worker's answers are shown. Every value, name, message and
// place comes from libnavofront through web/bridge.cpp; this script only lays them out, in Polish
// or English. Long lists are shown a page at a time.
'use strict';

(function () {
  const RECORDS_PER_PAGE = 50;
  const FINDINGS_PER_PAGE = 100;
  const ENCODINGS = { 'iso8859-2': 0, cp1250: 1 };

  const TEXTS = {
    pl: {
      title: 'Przeglądarka plików NAVO',
      privacy: 'Plik jest czytany tylko w tej przeglądarce, na tym komputerze. Strona nie łączy się z siecią i niczego nie wysyła ani nie zapisuje.',
      openHeading: 'Plik',
      dropHint: 'Upuść plik NAVO tutaj albo wybierz go:',
      fileLabel: 'Plik NAVO',
      encodingLabel: 'Strona kodowa',
      reading: 'Czytanie pliku',
      checking: 'Kontrola treści',
      searching: 'Szukanie',
      opening: 'Otwieranie dokumentu',
      exporting: 'Eksport',
      summaryHeading: 'Podsumowanie',
      exportJsonl: 'Eksport JSON Lines',
      exportCsv: 'Eksport CSV',
      exportOnlyValid: 'Eksport jest możliwy tylko dla poprawnego pliku.',
      exportDone: 'Zapisano plik {0}.',
      searchHeading: 'Szukaj wartości',
      searchLabel: 'Wartość pola (PESEL, NIP, nazwisko…)',
      searchButton: 'Szukaj',
      searchHint: 'Szukana jest cała wartość pola, litera w literę (wielkość liter ma znaczenie).',
      documentsHeading: 'Dokumenty',
      colNumber: 'Nr',
      colForm: 'Formularz',
      colAction: 'Działanie',
      open: 'Otwórz',
      openDocument: 'Otwórz dokument {0}',
      close: 'Zamknij',
      findingsHeading: 'Kontrola treści',
      showAllValues: 'Pokaż wszystkie wartości',
      footer: 'Biblioteka libnavo i jej rdzeń skompilowane do WebAssembly',
      file: 'Plik',
      state: 'Stan',
      valid: 'poprawny',
      invalid: 'błędny',
      version: 'Wersja definicji',
      documents: 'Dokumenty',
      fileHeader: 'Nagłówek pliku',
      fileNotes: 'Uwagi pliku (BLAD)',
      lines: 'Linie pliku',
      bytes: '{0} B',
      fault: 'Błąd',
      cause: 'Przyczyna',
      line: 'Linia',
      document: 'Dokument',
      area: 'Obszar',
      block: 'Blok',
      record: 'Rekord',
      field: 'Pole',
      length: 'Długość',
      lengthWords: 'oczekiwano {0}, jest {1}',
      fieldLength: 'Długość pola',
      words: 'Opis (po angielsku)',
      moreFaults: 'Błędów razem: {0}; pokazano pierwsze {1}.',
      areas: ['', 'prolog', 'nagłówek pliku', 'sekcja', 'nagłówek dokumentu', 'treść dokumentu', 'stopka dokumentu', 'stopka pliku'],
      documentHeading: 'Dokument {0}: {1}',
      choose: 'Wybierz dokument z listy, aby zobaczyć jego nagłówek, bloki z polami i uwagi.',
      documentHeader: 'Nagłówek dokumentu',
      value: 'Wartość',
      type: 'Typ',
      width: 'Szer.',
      blockHeading: 'Blok {0} ({1})',
      repeatingBlock: 'blok powtarzalny, rekordów: {0}',
      recordsShown: 'Rekordy {0}–{1} z {2}',
      first: '« Pierwsze',
      previous: '‹ Poprzednie',
      next: 'Następne ›',
      last: 'Ostatnie »',
      goTo: 'Przejdź do rekordu',
      go: 'Przejdź',
      ocrNotes: 'Uwagi OCR',
      errorNotes: 'Uwagi (BLAD)',
      note: 'Uwaga {0}',
      kind: 'rodzaj {0}',
      noFindings: 'Brak niezgodności: każda sprawdzona wartość spełnia regułę swojego typu.',
      findingsFound: 'Niezgodności: {0}.',
      findingsListed: 'Pokazano pierwsze {0}.',
      findingsSkipped: 'Kontrola treści obejmuje tylko poprawne sekcje pliku.',
      rule: 'Reguła',
      problem: 'Problem (po angielsku)',
      show: 'Pokaż',
      hide: 'Ukryj',
      hiddenValue: 'ukryta',
      valueOf: '{0} wartość: dokument {1}, {2} rekord {3}, {4}',
      findingsPage: 'Niezgodności {0}–{1} z {2}',
      notFound: 'Wartość „{0}” nie występuje w żadnym polu.',
      foundIn: 'Wartość „{0}” występuje w polach: {1}, w dokumentach: {2}.',
      foundListed: 'Pokazano pierwsze {0} miejsc.',
      at: '{0} rekord {1}, pole {2}',
      loaded: 'Wczytano {0}: {1}, dokumentów: {2}.',
      failed: 'Nie udało się: {0}',
      broken: 'Ta przeglądarka nie uruchomiła modułu WebAssembly ({0}). Potrzebna jest aktualna wersja Chrome, Edge, Firefox lub Safari.',
    },
    en: {
      title: 'NAVO file viewer',
      privacy: 'The file is read only in this browser, on this computer. The page connects to no network and sends or stores nothing.',
      openHeading: 'File',
      dropHint: 'Drop a NAVO file here or choose it:',
      fileLabel: 'NAVO file',
      encodingLabel: 'Code page',
      reading: 'Reading the file',
      checking: 'Content checks',
      searching: 'Searching',
      opening: 'Opening the document',
      exporting: 'Export',
      summaryHeading: 'Summary',
      exportJsonl: 'Export JSON Lines',
      exportCsv: 'Export CSV',
      exportOnlyValid: 'Only a valid file can be exported.',
      exportDone: 'Saved {0}.',
      searchHeading: 'Search for a value',
      searchLabel: 'Field value (PESEL, NIP, surname…)',
      searchButton: 'Search',
      searchHint: 'The whole value of a field is compared, letter for letter (case matters).',
      documentsHeading: 'Documents',
      colNumber: 'No.',
      colForm: 'Form',
      colAction: 'Action',
      open: 'Open',
      openDocument: 'Open document {0}',
      close: 'Close',
      findingsHeading: 'Content checks',
      showAllValues: 'Show all values',
      footer: 'The libnavo library and its core compiled to WebAssembly',
      file: 'File',
      state: 'State',
      valid: 'valid',
      invalid: 'faulty',
      version: 'Definition version',
      documents: 'Documents',
      fileHeader: 'File header',
      fileNotes: 'File notes (BLAD)',
      lines: 'Lines of the file',
      bytes: '{0} bytes',
      fault: 'Fault',
      cause: 'Cause',
      line: 'Line',
      document: 'Document',
      area: 'Area',
      block: 'Block',
      record: 'Record',
      field: 'Field',
      length: 'Length',
      lengthWords: 'expected {0}, found {1}',
      fieldLength: 'Length of the field',
      words: 'In words',
      moreFaults: 'Faults in all: {0}; the first {1} are shown.',
      areas: ['', 'prolog', 'file header', 'section', 'document header', 'body', 'notes', 'footer'],
      documentHeading: 'Document {0}: {1}',
      choose: 'Choose a document in the list to see its header, its blocks with their fields and its notes.',
      documentHeader: 'Document header',
      value: 'Value',
      type: 'Type',
      width: 'Width',
      blockHeading: 'Block {0} ({1})',
      repeatingBlock: 'repeating block, records: {0}',
      recordsShown: 'Records {0}–{1} of {2}',
      first: '« First',
      previous: '‹ Previous',
      next: 'Next ›',
      last: 'Last »',
      goTo: 'Go to record',
      go: 'Go',
      ocrNotes: 'OCR notes',
      errorNotes: 'Notes (BLAD)',
      note: 'Note {0}',
      kind: 'kind {0}',
      noFindings: 'No findings: every value checked meets the rule of its type.',
      findingsFound: 'Findings: {0}.',
      findingsListed: 'The first {0} are shown.',
      findingsSkipped: 'The content checks cover the valid sections of the file only.',
      rule: 'Rule',
      problem: 'Problem',
      show: 'Show',
      hide: 'Hide',
      hiddenValue: 'hidden',
      valueOf: '{0} the value: document {1}, {2} record {3}, {4}',
      findingsPage: 'Findings {0}–{1} of {2}',
      notFound: 'The value “{0}” is in no field.',
      foundIn: 'The value “{0}” is in {1} fields, in {2} documents.',
      foundListed: 'The first {0} places are shown.',
      at: '{0} record {1}, field {2}',
      loaded: 'Read {0}: {1}, documents: {2}.',
      failed: 'Failed: {0}',
      broken: 'This browser did not start the WebAssembly module ({0}). A current Chrome, Edge, Firefox or Safari is needed.',
    },
  };

  const state = {
    language: 'pl',
    generation: 0,      // raised for each file and each code page: older answers are dropped
    file: null,
    encoding: 'iso8859-2',
    summary: null,
    checks: null,       // the summary of the load with the content checks
    findingsFirst: 0,
    valuesShown: new Set(),
    allValues: false,
    document: null,     // the open document, with the records each block shows
    hit: null,          // the place to mark in the open document
    search: null,       // { value, answer }
    status: null,       // [key, ...arguments]
  };

  // ---- small helpers -----------------------------------------------------------------------

  function t(key) {
    const text = TEXTS[state.language][key];
    const args = Array.prototype.slice.call(arguments, 1);
    return typeof text === 'string' ? text.replace(/\{(\d)\}/g, function (_, i) { return args[+i]; }) : text;
  }
  function count(n) {
    return Number(n).toLocaleString(state.language === 'pl' ? 'pl-PL' : 'en-GB');
  }
  function el(tag, attributes) {
    const node = document.createElement(tag);
    for (const name in attributes || {}) {
      const value = attributes[name];
      if (value === undefined || value === null || value === false) continue;
      if (name === 'text') node.textContent = value;
      else if (name === 'className') node.className = value;
      else if (name.startsWith('on')) node.addEventListener(name.slice(2), value);
      else node.setAttribute(name, value === true ? '' : String(value));
    }
    for (let i = 2; i < arguments.length; i++) {
      const child = arguments[i];
      if (child === null || child === undefined || child === false) continue;
      node.append(child instanceof Node ? child : String(child));
    }
    return node;
  }
  function $(id) { return document.getElementById(id); }
  function button(text, onclick, attributes) {
    return el('button', Object.assign({ type: 'button', text: text, onclick: onclick }, attributes || {}));
  }
  function setStatus(key) {
    state.status = Array.prototype.slice.call(arguments);
    $('status').textContent = key ? t.apply(null, state.status) : '';
  }

  // ---- the worker ------------------------------------------------------------------------

  let worker = null;
  let broken = null;  // why the module could not start in this browser
  let nextRequest = 1;
  const pending = new Map();  // id -> { resolve, reject, progress }

  function startWorker() {
    const source = $('navo-worker').textContent;
    const url = URL.createObjectURL(new Blob([source], { type: 'text/javascript' }));
    worker = new Worker(url);
    worker.onmessage = function (event) {
      const message = event.data;
      if (message.ready) { URL.revokeObjectURL(url); return; }
      if (message.broken) {
        broken = message.broken;
        setStatus('broken', broken);
        pending.forEach(function (request) { request.reject(null); });
        pending.clear();
        return;
      }
      const request = pending.get(message.id);
      if (!request) return;
      if (message.progress) { if (request.progress) request.progress(message.progress[0], message.progress[1]); return; }
      pending.delete(message.id);
      if (message.failure) {
        if (message.fatal) restartWorker();
        request.reject(new Error(message.failure));
      } else {
        request.resolve(message);
      }
    };
    worker.onerror = function (event) {
      event.preventDefault();
      const requests = Array.from(pending.values());
      pending.clear();
      restartWorker();
      requests.forEach(function (request) { request.reject(new Error(event.message || 'worker')); });
    };
  }
  function restartWorker() {
    worker.terminate();
    startWorker();
  }
  // A new file or code page while the worker still reads: its work is of no use any more.
  function dropPendingWork() {
    if (pending.size === 0) return;
    pending.forEach(function (request) { request.reject(null); });
    pending.clear();
    restartWorker();
  }
  function ask(op, fields, progress) {
    return new Promise(function (resolve, reject) {
      if (broken !== null) { reject(null); return; }
      const id = nextRequest++;
      pending.set(id, { resolve: resolve, reject: reject, progress: progress });
      worker.postMessage(Object.assign({ id: id, op: op }, fields));
    });
  }
  function encoding() { return ENCODINGS[state.encoding]; }

  // ---- progress ----------------------------------------------------------------------------

  const running = [];  // the requests under way, latest last: the bar shows the latest
  function drawProgress() {
    const latest = running[running.length - 1];
    $('progress-box').hidden = !latest;
    if (!latest) return;
    $('progress-label').textContent = t(latest.key);
    $('progress').value = latest.percent;
    $('progress-text').textContent = latest.percent + '%';
  }
  // Runs a request of the current file under the progress bar; its answer is dropped when
  // another file or code page came in between.
  function work(key, op, fields) {
    const generation = state.generation;
    const entry = { key: key, percent: 0 };
    running.push(entry);
    drawProgress();
    const done = function () {
      running.splice(running.indexOf(entry), 1);
      drawProgress();
    };
    const progress = function (line, lines) {
      entry.percent = lines > 0 ? Math.min(100, Math.floor(line * 100 / lines)) : 0;
      if (entry === running[running.length - 1]) drawProgress();
    };
    return ask(op, fields, progress).then(function (answer) {
      done();
      if (generation !== state.generation) throw null;
      return answer;
    }, function (error) {
      done();
      if (error && generation === state.generation) setStatus('failed', error.message);
      throw null;
    });
  }
  function ignore(error) {
    if (error) setStatus('failed', String(error.message || error));
  }

  // ---- the file ----------------------------------------------------------------------------

  function openFile(file) {
    if (!file) return;
    if (broken !== null) { setStatus('broken', broken); return; }
    dropPendingWork();
    state.generation++;
    state.file = file;
    state.summary = null;
    state.checks = null;
    state.document = null;
    state.search = null;
    state.findingsFirst = 0;
    state.valuesShown.clear();
    setStatus(null);
    renderAll();
    work('reading', 'open', { file: file, encoding: encoding() }).then(function (answer) {
      showSummary(answer.summary);
      return runChecks();
    }).catch(ignore);
  }

  function rereadFile() {
    if (!state.file) return;
    dropPendingWork();
    state.generation++;
    const open = state.document ? state.document.number : 0;
    const search = state.search ? state.search.value : null;
    state.checks = null;
    work('reading', 'summary', { encoding: encoding(), checks: false }).then(function (answer) {
      showSummary(answer.summary);
      return runChecks();
    }).then(function () {
      if (open > 0) return openDocument(open, state.hit);
    }).then(function () {
      if (search !== null) return runSearch(search);
    }).catch(ignore);
  }

  function showSummary(summary) {
    state.summary = summary;
    const valid = summary.message.code === 0;
    setStatus('loaded', state.file.name, t(valid ? 'valid' : 'invalid'), count(summary.documents));
    renderAll();
  }

  function runChecks() {
    const checked = work('checking', 'summary', { encoding: encoding(), checks: true }).then(function (answer) {
      state.checks = answer.summary;
      state.findingsFirst = 0;
      renderFindings();
    });
    renderFindings();
    return checked;
  }

  // ---- rendering ---------------------------------------------------------------------------

  function renderAll() {
    renderSummary();
    renderDocuments();
    renderDocument();
    renderFindings();
    renderSearch();
  }

  function renderSummary() {
    const summary = state.summary;
    $('summary-section').hidden = !summary;
    $('search-section').hidden = !summary;
    const box = $('summary');
    box.replaceChildren();
    $('faults').replaceChildren();
    const exports = document.querySelectorAll('[data-navo=export-jsonl], [data-navo=export-csv]');
    if (!summary) {
      box.removeAttribute('data-documents');
      box.removeAttribute('data-valid');
      exports.forEach(function (b) { b.disabled = true; });
      return;
    }
    const valid = summary.message.code === 0;
    box.setAttribute('data-documents', String(summary.documents));
    box.setAttribute('data-valid', valid ? 'true' : 'false');
    const facts = el('dl', { className: 'facts' });
    const fact = function (term, value, className) {
      facts.append(el('div', null, el('dt', { text: term }), el('dd', { className: className }, value)));
    };
    fact(t('file'), state.file.name + ' (' + t('bytes', count(state.file.size)) + ')');
    fact(t('state'), t(valid ? 'valid' : 'invalid') + (valid ? '' : ': ' + message(summary.message)),
         valid ? 'valid' : 'invalid');
    if (summary.version) fact(t('version'), summary.version);
    fact(t('documents'), count(summary.documents));
    fact(t('lines'), count(summary.lines));
    box.append(facts);
    if (summary.header.length > 0) {
      box.append(el('details', null, el('summary', { text: t('fileHeader') }), lines(summary.header, 'line', 5)));
    }
    if (summary.notes.length > 0) {
      box.append(el('details', null, el('summary', { text: t('fileNotes') }), lines(summary.notes, 'text', 4)));
    }

    const faults = $('faults');
    summary.faultList.forEach(function (fault) { faults.append(renderFault(fault)); });
    if (summary.faults > summary.faultList.length) {
      faults.append(el('p', { className: 'note', text: t('moreFaults', count(summary.faults), count(summary.faultList.length)) }));
    }
    exports.forEach(function (b) { b.disabled = !valid; });
    $('export-note').textContent = valid ? '' : t('exportOnlyValid');
  }

  function message(m) {
    return state.language === 'pl' ? m.pl : m.en;
  }
  // Lines of a header or of notes, each under the name places give it ("line1", "text1").
  function lines(texts, name, per) {
    const list = el('dl', { className: 'header' });
    texts.forEach(function (text, i) {
      list.append(el('div', null, el('dt', { text: name + ((i % per) + 1) }), el('dd', { className: 'value', text: text })));
    });
    return list;
  }

  // A fault with what is known of its place, and the core's sentence for it.
  function renderFault(fault) {
    const attributes = { className: 'fault', 'data-navo': 'fault' };
    if (fault.line > 0) attributes['data-line'] = fault.line;
    if (fault.document > 0) attributes['data-document'] = fault.document;
    if (fault.block) attributes['data-block'] = fault.block;
    if (fault.record >= 0) attributes['data-record'] = fault.record;
    if (fault.field) attributes['data-field'] = fault.field;
    const box = el('div', attributes, el('strong', { text: t('fault') + ': ' + message(fault) }));
    const list = el('dl');
    const row = function (term, value) { list.append(el('dt', { text: term }), el('dd', { text: value })); };
    if (fault.cause.code !== fault.code) row(t('cause'), message(fault.cause));
    if (fault.line > 0) row(t('line'), count(fault.line));
    if (fault.area > 0) row(t('area'), t('areas')[fault.area] || fault.areaName);
    if (fault.document > 0) row(t('document'), fault.document + (fault.form ? ' (' + fault.form + ')' : ''));
    if (fault.block) row(t('block'), fault.block);
    if (fault.record >= 0) row(t('record'), fault.record);
    if (fault.field) row(t('field'), fault.field);
    if (fault.expected >= 0) row(t('length'), t('lengthWords', fault.expected, fault.found));
    if (fault.fieldExpected >= 0) row(t('fieldLength'), t('lengthWords', fault.fieldExpected, fault.fieldFound));
    row(t('words'), fault.describe + (fault.detail ? ': ' + fault.detail : ''));
    box.append(list);
    if (fault.document > 0 && state.summary && state.summary.numbers.indexOf(fault.document) >= 0) {
      box.append(button(t('openDocument', fault.document), function () { openDocument(fault.document, null).catch(ignore); }));
    }
    return box;
  }

  function renderDocuments() {
    const summary = state.summary;
    $('documents-section').hidden = !summary || summary.numbers.length === 0;
    const body = $('documents').tBodies[0];
    body.replaceChildren();
    if (!summary) return;
    const holding = new Set();
    if (state.search) state.search.answer.found.forEach(function (place) { holding.add(place.document); });
    const rows = document.createDocumentFragment();
    summary.numbers.forEach(function (number, i) {
      const form = summary.forms[i];
      const open = state.document !== null && state.document.number === number;
      rows.append(el('tr', { 'data-navo': 'document', 'data-number': number, 'data-form': form,
                             className: holding.has(number) ? 'hit' : null, 'aria-current': open ? 'true' : null },
        el('td', { text: number }),
        el('td', { text: form }),
        el('td', null, button(t('open'), function () { openDocument(number, null).catch(ignore); },
                              { 'aria-label': t('openDocument', number) }))));
    });
    body.append(rows);
  }

  // ---- a document --------------------------------------------------------------------------

  function openDocument(number, hit) {
    return work('opening', 'document', { number: number, encoding: encoding(), count: RECORDS_PER_PAGE }).then(function (answer) {
      const doc = answer.document;
      if (doc.message.code !== 0) { setStatus('failed', message(doc.message)); return; }
      doc.firsts = doc.blocks.map(function () { return 0; });
      state.document = doc;
      renderDocuments();
      state.hit = hit;
      let block = hit ? doc.blocks.findIndex(function (b) { return b.tag === hit.block; }) : -1;
      const first = block >= 0 && hit.record >= RECORDS_PER_PAGE ? Math.floor(hit.record / RECORDS_PER_PAGE) * RECORDS_PER_PAGE : 0;
      const shown = first > 0 ? showRecords(block, first) : Promise.resolve();
      return shown.then(function () {
        renderDocument();
        const target = document.querySelector('#document td.hit') || $('document-heading');
        $('document-section').scrollIntoView({ block: 'start' });
        if (target.classList.contains('hit')) target.scrollIntoView({ block: 'center', inline: 'center' });
        $('document-heading').focus({ preventScroll: true });
      });
    });
  }

  function showRecords(block, first) {
    return work('opening', 'records', { block: block, first: first, count: RECORDS_PER_PAGE }).then(function (answer) {
      const doc = state.document;
      if (!doc || !answer.records.rows) return;
      doc.blocks[block].rows = answer.records.rows;
      doc.firsts[block] = first;
    });
  }

  function renderDocument() {
    const doc = state.document;
    $('document-section').hidden = !state.summary || state.summary.numbers.length === 0;
    $('document-close').hidden = !doc;
    const box = $('document');
    box.replaceChildren();
    if (!doc) {
      $('document-heading').textContent = t('document');
      box.append(el('p', { className: 'placeholder', text: t('choose') }));
      return;
    }
    $('document-heading').textContent = t('documentHeading', doc.number, doc.form);

    box.append(el('h3', { text: t('documentHeader') }), lines(doc.header, 'line', 14));

    doc.blocks.forEach(function (block, b) {
      box.append(block.repeating ? repeatingBlock(doc, block, b) : singleBlock(block));
    });
    notes(box, t('ocrNotes'), doc.ocr);
    notes(box, t('errorNotes'), doc.errors);
  }

  function isHit(tag, record, field) {
    const hit = state.hit;
    return hit !== null && hit.block === tag && hit.record === record && (field === undefined || hit.field === field);
  }

  function singleBlock(block) {
    const id = 'block-' + block.tag;
    const section = el('div', { className: 'block', role: 'group', 'aria-labelledby': id });
    section.append(el('h3', { id: id, text: t('blockHeading', block.tag, block.name) }));
    const table = el('table');
    table.append(el('thead', null, el('tr', null,
      el('th', { scope: 'col', text: t('field') }), el('th', { scope: 'col', text: t('value') }),
      el('th', { scope: 'col', text: t('type') }), el('th', { scope: 'col', text: t('width') }))));
    const body = el('tbody');
    const values = block.rows[0] || [];
    block.fields.forEach(function (field, f) {
      body.append(el('tr', null,
        el('th', { scope: 'row', text: field.name }),
        el('td', { className: 'value' + (isHit(block.tag, 0, field.name) ? ' hit' : ''), text: values[f] }),
        el('td', { text: field.type }),
        el('td', { text: field.width })));
    });
    table.append(body);
    section.append(el('div', { className: 'scroll', tabindex: 0, role: 'region', 'aria-labelledby': id }, table));
    return section;
  }

  function repeatingBlock(doc, block, b) {
    const id = 'block-' + block.tag;
    const first = doc.firsts[b];
    const section = el('div', { className: 'block', role: 'group', 'aria-labelledby': id });
    section.append(el('h3', { id: id, text: t('blockHeading', block.tag, block.name) }),
                   el('p', { className: 'note', text: t('repeatingBlock', count(block.records)) }));
    if (block.records > RECORDS_PER_PAGE) section.append(pager(doc, block, b));
    const table = el('table');
    const head = el('tr', null, el('th', { scope: 'col', text: t('record') }));
    block.fields.forEach(function (field) {
      head.append(el('th', { scope: 'col', title: field.type + ', ' + field.width, text: field.name }));
    });
    table.append(el('thead', null, head));
    const body = el('tbody');
    block.rows.forEach(function (values, i) {
      const record = first + i;
      const row = el('tr', null, el('th', { scope: 'row', text: record }));
      values.forEach(function (value, f) {
        row.append(el('td', { className: 'value' + (isHit(block.tag, record, block.fields[f].name) ? ' hit' : ''), text: value }));
      });
      body.append(row);
    });
    table.append(body);
    section.append(el('div', { className: 'scroll', tabindex: 0, role: 'region', 'aria-labelledby': id }, table));
    return section;
  }

  function pager(doc, block, b) {
    const first = doc.firsts[b];
    const lastFirst = Math.floor((block.records - 1) / RECORDS_PER_PAGE) * RECORDS_PER_PAGE;
    const go = function (to) {
      to = Math.max(0, Math.min(lastFirst, to));
      showRecords(b, to).then(function () {
        renderDocument();
        const heading = $('block-' + block.tag);
        if (heading) heading.scrollIntoView({ block: 'start' });
      }).catch(ignore);
    };
    const bar = el('div', { className: 'pager' });
    const last = Math.min(block.records, first + RECORDS_PER_PAGE) - 1;
    bar.append(el('span', { text: t('recordsShown', count(first), count(last), count(block.records)) }),
      button(t('first'), function () { go(0); }, { disabled: first === 0 }),
      button(t('previous'), function () { go(first - RECORDS_PER_PAGE); }, { disabled: first === 0 }),
      button(t('next'), function () { go(first + RECORDS_PER_PAGE); }, { disabled: first >= lastFirst }),
      button(t('last'), function () { go(lastFirst); }, { disabled: first >= lastFirst }));
    const inputId = 'goto-' + block.tag;
    const input = el('input', { type: 'number', id: inputId, min: 0, max: block.records - 1, step: 1 });
    const form = el('form', { className: 'pager', onsubmit: function (event) {
      event.preventDefault();
      const record = parseInt(input.value, 10);
      if (!isNaN(record)) go(Math.floor(record / RECORDS_PER_PAGE) * RECORDS_PER_PAGE);
    } }, el('label', { for: inputId, text: t('goTo') }), input, el('button', { type: 'submit', text: t('go') }));
    bar.append(form);
    return bar;
  }

  function notes(box, heading, list) {
    if (!list || list.length === 0) return;
    box.append(el('h3', { text: heading }));
    list.forEach(function (note, i) {
      box.append(el('div', { className: 'block', role: 'group', 'aria-label': heading + ': ' + t('note', i + 1) },
        el('p', { className: 'note', text: t('note', i + 1) + (note.kind ? ', ' + t('kind', note.kind) : '') }),
        lines(note.texts, 'text', note.texts.length)));
    });
  }

  // ---- findings ----------------------------------------------------------------------------

  function renderFindings() {
    const checks = state.checks;
    $('findings-section').hidden = !state.summary;
    const box = $('findings');
    box.replaceChildren();
    $('findings-controls').hidden = true;
    if (!state.summary) return;
    if (!checks) {
      const checking = running.some(function (entry) { return entry.key === 'checking'; });
      $('findings-status').textContent = checking ? t('checking') + '…' : '';
      return;
    }
    const list = checks.findingList;
    let words = checks.findings === 0 ? t('noFindings') : t('findingsFound', count(checks.findings));
    if (checks.findings > list.length) words += ' ' + t('findingsListed', count(list.length));
    if (checks.faults > 0) words += ' ' + t('findingsSkipped');
    $('findings-status').textContent = words;
    if (list.length === 0) return;
    $('findings-controls').hidden = false;
    $('findings-values').checked = state.allValues;

    const first = state.findingsFirst;
    const last = Math.min(list.length, first + FINDINGS_PER_PAGE);
    if (list.length > FINDINGS_PER_PAGE) box.append(findingsPager(list.length, first, last));
    const table = el('table');
    const head = el('tr');
    [t('document'), t('colForm'), t('block'), t('record'), t('field'), t('type'), t('rule'), t('problem'), t('value'), '']
      .forEach(function (text) { head.append(el('th', { scope: 'col', text: text })); });
    table.append(el('thead', null, head));
    const body = el('tbody');
    for (let i = first; i < last; i++) body.append(findingRow(list[i], i));
    table.append(body);
    box.append(el('div', { className: 'scroll', tabindex: 0, role: 'region', 'aria-labelledby': 'findings-heading' }, table));
  }

  function findingRow(finding, i) {
    const shown = state.allValues || state.valuesShown.has(i);
    const valueCell = el('td', { className: shown ? 'value' : 'hidden-value' }, shown ? finding.value : t('hiddenValue'));
    const toggle = button(shown ? t('hide') : t('show'), function () {
      if (state.valuesShown.has(i)) state.valuesShown.delete(i); else state.valuesShown.add(i);
      const row = findingRow(finding, i);
      this.closest('tr').replaceWith(row);
      row.querySelector('button').focus();
    }, { 'aria-label': t('valueOf', shown ? t('hide') : t('show'), finding.document, finding.block, finding.record, finding.field),
         'aria-pressed': shown ? 'true' : 'false', disabled: state.allValues });
    valueCell.append(' ', toggle);
    const place = { block: finding.block, record: finding.record, field: finding.field };
    return el('tr', { 'data-navo': 'finding', 'data-document': finding.document, 'data-block': finding.block,
                      'data-record': finding.record, 'data-field': finding.field },
      el('td', { text: finding.document }), el('td', { text: finding.form }), el('td', { text: finding.block }),
      el('td', { text: finding.record }), el('td', { text: finding.field }), el('td', { text: finding.type }),
      el('td', { text: finding.rule }), el('td', { text: finding.problem }), valueCell,
      el('td', null, button(t('open'), function () { openDocument(finding.document, place).catch(ignore); },
                            { 'aria-label': t('openDocument', finding.document) })));
  }

  function findingsPager(total, first, last) {
    const go = function (to) {
      state.findingsFirst = Math.max(0, Math.min(Math.floor((total - 1) / FINDINGS_PER_PAGE) * FINDINGS_PER_PAGE, to));
      renderFindings();
    };
    return el('div', { className: 'pager' },
      el('span', { text: t('findingsPage', count(first + 1), count(last), count(total)) }),
      button(t('previous'), function () { go(first - FINDINGS_PER_PAGE); }, { disabled: first === 0 }),
      button(t('next'), function () { go(first + FINDINGS_PER_PAGE); }, { disabled: last >= total }));
  }

  // ---- search ------------------------------------------------------------------------------

  function runSearch(value) {
    if (!state.summary || value === '') return Promise.resolve();
    return work('searching', 'find', { value: value, encoding: encoding() }).then(function (answer) {
      state.search = { value: value, answer: answer.find };
      renderSearch();
      renderDocuments();
    });
  }

  function renderSearch() {
    const box = $('search-results');
    box.replaceChildren();
    const search = state.search;
    if (!search) return;
    const found = search.answer.found;
    const byDocument = new Map();
    found.forEach(function (place) {
      if (!byDocument.has(place.document)) byDocument.set(place.document, []);
      byDocument.get(place.document).push(place);
    });
    if (search.answer.total === 0) {
      box.append(el('p', { text: t('notFound', search.value) }));
      return;
    }
    box.append(el('p', { text: t('foundIn', search.value, count(search.answer.total), count(byDocument.size)) }));
    if (search.answer.total > found.length) box.append(el('p', { className: 'note', text: t('foundListed', count(found.length)) }));
    const list = el('ul', { className: 'places' });
    byDocument.forEach(function (places, number) {
      const item = el('li', null, el('strong', { text: t('document') + ' ' + number + ' (' + places[0].form + '): ' }));
      places.forEach(function (place, i) {
        if (i > 0) item.append(', ');
        item.append(button(t('at', place.block, place.record, place.field), function () {
          openDocument(number, { block: place.block, record: place.record, field: place.field }).catch(ignore);
        }));
      });
      list.append(item);
    });
    box.append(list);
  }

  // ---- export ------------------------------------------------------------------------------

  function exportAs(format) {
    const name = state.file.name.replace(/\.[^.]*$/, '') + (format === 'csv' ? '.csv' : '.jsonl');
    work('exporting', 'export', { format: format, encoding: encoding() }).then(function (answer) {
      if (!answer.blob) { setStatus('failed', message(answer.exported.message)); return; }
      const url = URL.createObjectURL(answer.blob);
      const link = el('a', { href: url, download: name, hidden: true });
      document.body.append(link);
      link.click();
      link.remove();
      setTimeout(function () { URL.revokeObjectURL(url); }, 60000);
      setStatus('exportDone', name);
    }).catch(ignore);
  }

  // ---- language ----------------------------------------------------------------------------

  function setLanguage(language) {
    state.language = language;
    document.documentElement.lang = language;
    document.title = t('title');
    document.querySelectorAll('[data-language]').forEach(function (b) {
      b.setAttribute('aria-pressed', b.getAttribute('data-language') === language ? 'true' : 'false');
    });
    document.querySelectorAll('[data-t]').forEach(function (node) { node.textContent = t(node.getAttribute('data-t')); });
    drawProgress();
    if (state.status) setStatus.apply(null, state.status);
    renderAll();
  }

  // ---- wiring ------------------------------------------------------------------------------

  startWorker();
  $('file').addEventListener('change', function () { openFile(this.files[0]); });
  $('encoding').addEventListener('change', function () {
    state.encoding = this.value;
    rereadFile();
  });
  document.querySelectorAll('[data-language]').forEach(function (b) {
    b.addEventListener('click', function () { setLanguage(b.getAttribute('data-language')); });
  });
  document.querySelector('[data-navo=export-jsonl]').addEventListener('click', function () { exportAs('jsonl'); });
  document.querySelector('[data-navo=export-csv]').addEventListener('click', function () { exportAs('csv'); });
  $('search').addEventListener('submit', function (event) {
    event.preventDefault();
    runSearch($('search-value').value).catch(ignore);
  });
  $('document-close').addEventListener('click', function () {
    state.document = null;
    state.hit = null;
    renderDocuments();
    renderDocument();
    $('documents-heading').scrollIntoView();
  });
  $('findings-values').addEventListener('change', function () {
    state.allValues = this.checked;
    renderFindings();
  });

  // A file dropped anywhere on the page opens as if chosen.
  const drop = $('drop');
  let dragDepth = 0;
  document.addEventListener('dragenter', function (event) {
    event.preventDefault();
    dragDepth++;
    drop.classList.add('over');
  });
  document.addEventListener('dragleave', function () {
    if (--dragDepth <= 0) { dragDepth = 0; drop.classList.remove('over'); }
  });
  document.addEventListener('dragover', function (event) { event.preventDefault(); });
  document.addEventListener('drop', function (event) {
    event.preventDefault();
    dragDepth = 0;
    drop.classList.remove('over');
    if (event.dataTransfer && event.dataTransfer.files.length > 0) openFile(event.dataTransfer.files[0]);
  });

  state.encoding = $('encoding').value;
  setLanguage('pl');
})();
