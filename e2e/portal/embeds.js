// One case of embedding-cases.json, named by this page's query (?case=NAME): its markup goes into the page
// after load, its steps run later; `done` turns true after the last. What the plug-in tells the page is
// kept in `transcript`, a call a line, its arguments as JSON.
var transcript = [];
var done = false;

['VPNNotInstalled', 'VPNInstallationOK', 'VPNInstallationFailed', 'onTunvoDownloadStart', 'onTunvoDownloadProgress',
 'onTunvoDownloadDone', 'onTunvoInstalling', 'c_addcomm'].forEach(function (name) {
  window[name] = function () {
    transcript.push(name + '(' + Array.prototype.map.call(arguments, JSON.stringify).join(',') + ')');
  };
});

function param(name, value) {
  var p = document.createElement('param');
  p.setAttribute('name', name);
  p.setAttribute('value', value);
  return p;
}

function runCase() {
  var request = new XMLHttpRequest();
  request.open('GET', 'embedding-cases.json', false);
  request.send();
  var table = JSON.parse(request.responseText);
  var wanted = /[?&]case=([^&]*)/.exec(location.search);
  var found = table.cases.filter(function (c) { return wanted && c.name == wanted[1]; })[0];
  if (!found) return;  // no case: a page without elements
  var fill = function (text) { return text.split('$T').join(table.T); };
  document.getElementById('stage').innerHTML = fill(found.markup);
  var steps = found.steps || [];
  steps.forEach(function (step) {
    setTimeout(function () {
      var el = document.getElementById('el');
      new Function('el', 'param', fill(step[1]))(el, param);
    }, step[0]);
  });
  var last = steps.length ? steps[steps.length - 1][0] : 0;
  setTimeout(function () { done = true; }, last + 300);
}
addEventListener('load', runCase);
