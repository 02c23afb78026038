// A portal page written the classic way, unlike the demo portal: it looks the plug-in up in
// navigator.mimeTypes before the page has loaded, then, once loaded, adds an <object> whose parameters are
// <param> children, with an <embed> of the same parameters as its fallback content. Its page functions
// note every call with its arguments and their types. Served under a strict Content-Security-Policy: no
// inline script. ?mode=install|connect|probe&size=N&signature=S&answers=a,b (no mode: it only looks)
var PLUGIN_TYPE = 'application/x-orvane-sslvpn';
var transcript = [];
var answers = [];

function query(name) {
  var found = new RegExp('[?&]' + name + '=([^&]*)').exec(location.search);
  return found ? decodeURIComponent(found[1]) : '';
}

function note(line) {
  transcript.push(line);
  var item = document.createElement('li');
  item.textContent = line;
  var list = document.getElementById('transcript');
  if (list) list.appendChild(item);
}

function status(text) {
  var line = document.getElementById('status');
  if (line) line.textContent = text;
}

// name(type:value, ...) for a call of the plug-in.
function heard(name, args) {
  note(name + '(' + Array.prototype.map.call(args, function (a) { return typeof a + ':' + a; }).join(', ') + ')');
}

function onTunvoDownloadStart() { heard('onTunvoDownloadStart', arguments); status('Downloading the VPN client...'); }
function onTunvoDownloadProgress() { heard('onTunvoDownloadProgress', arguments); }
function onTunvoDownloadDone() { heard('onTunvoDownloadDone', arguments); }
function onTunvoInstalling() { heard('onTunvoInstalling', arguments); status('Installing...'); }
function VPNInstallationOK() { heard('VPNInstallationOK', arguments); status('Installed.'); }
function VPNInstallationFailed() { heard('VPNInstallationFailed', arguments); status('Not installed.'); }
function VPNNotInstalled() { heard('VPNNotInstalled', arguments); status('The VPN client is not installed.'); }
function c_addcomm() {
  heard('c_addcomm', arguments);
  status('Connected');
  return answers.length ? answers.shift() : '';
}

// The element's parameters for this page's mode, in order.
function parameters() {
  var mode = query('mode');
  if (mode == 'install') {
    return [['_installvpn', '1'], ['hostrooturl', location.protocol + '//' + location.host], ['tunvourl', '/package.tar'],
            ['tunvosize', query('size')], ['signature', query('signature')], ['_installmethod', 'sudo'],
            ['_userpassword', 'demo-password']];
  }
  if (mode == 'connect') {
    answers = query('answers') ? query('answers').split(',') : [];
    return [['last_param', '1'], ['held', 'a b&c'], ['tunvoversion', '']];
  }
  return mode == 'probe' ? [['_probevpn', '1']] : null;
}

function embed() {
  var given = parameters();
  if (!given) return;  // no mode: the page only looks for the plug-in
  var object = document.createElement('object');
  object.setAttribute('type', PLUGIN_TYPE);
  object.setAttribute('width', '2');
  object.setAttribute('height', '2');
  var fallback = document.createElement('embed');
  fallback.setAttribute('type', PLUGIN_TYPE);
  fallback.setAttribute('width', '2');
  fallback.setAttribute('height', '2');
  given.forEach(function (pair) {
    var param = document.createElement('param');
    param.setAttribute('name', pair[0]);
    param.setAttribute('value', pair[1]);
    object.appendChild(param);
    fallback.setAttribute(pair[0], pair[1]);
  });
  object.appendChild(fallback);
  document.getElementById('holder').appendChild(object);
}

var mimeType = navigator.mimeTypes[PLUGIN_TYPE];
if (mimeType && mimeType.enabledPlugin) {
  note('found: ' + mimeType.enabledPlugin.name + ' (' + mimeType.suffixes + ')');
  addEventListener('load', function () {
    status('Starting...');
    embed();
  });
} else {
  note('not found');
  addEventListener('load', function () { status('Please install the VPN plug-in.'); });
}
