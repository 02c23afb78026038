// A portal page written the classic way, unlike the demo portal: it looks the plug-in up in
// navigator.mimeTypes before the page has loaded, then, once loaded, adds an <object> whose parameters are
// <param> children, with an <embed> of the same parameters as its fallback content. Its page functions
// note every call with its arguments and their types, name(type:value, ...). Served under a strict
// Content-Security-Policy: no inline script.
// ?mode=install|connect|probe&size=N&signature=S&answers=a,b (no mode: it only looks for the plug-in)
var PLUGIN_TYPE = 'application/x-orvane-sslvpn';
var transcript = [];
var answers = [];

function query(name) {
  var found = new RegExp('[?&]' + name + '=([^&]*)').exec(location.search);
  return found ? decodeURIComponent(found[1]) : '';
}

function note(line) {
  transcript.push(line);
  var status = document.getElementById('status');
  if (status) status.textContent = line;
}

['onTunvoDownloadStart', 'onTunvoDownloadProgress', 'onTunvoDownloadDone', 'onTunvoInstalling', 'VPNInstallationOK',
 'VPNInstallationFailed', 'VPNNotInstalled', 'c_addcomm'].forEach(function (name) {
  window[name] = function () {
    note(name + '(' + Array.prototype.map.call(arguments, function (a) { return typeof a + ':' + a; }).join(', ') + ')');
    return name == 'c_addcomm' && answers.length ? answers.shift() : '';
  };
});

// The element's parameters for this page's mode, in order; null without a mode.
function parameters() {
  var mode = query('mode');
  if (mode == 'install') {
    return [['_installvpn', '1'], ['hostrooturl', location.protocol + '//' + location.host], ['tunvourl', '/package.tar'],
            ['tunvosize', query('size')], ['signature', query('signature')], ['_installmethod', 'sudo'],
            ['_userpassword', 'demo-password']];
  }
  answers = query('answers') ? query('answers').split(',') : [];
  if (mode == 'connect') return [['last_param', '1'], ['held', 'a b&c'], ['tunvoversion', '']];
  return mode == 'probe' ? [['_probevpn', '1']] : null;
}

function element(tag, attributes) {
  var made = document.createElement(tag);
  attributes.forEach(function (pair) { made.setAttribute(pair[0], pair[1]); });
  return made;
}

function embed() {
  var given = parameters();
  if (!given) return;
  var sized = [['type', PLUGIN_TYPE], ['width', '2'], ['height', '2']];
  var object = element('object', sized);
  given.forEach(function (pair) { object.appendChild(element('param', [['name', pair[0]], ['value', pair[1]]])); });
  object.appendChild(element('embed', sized.concat(given)));
  document.body.appendChild(object);
}

var mimeType = navigator.mimeTypes[PLUGIN_TYPE];
note(mimeType && mimeType.enabledPlugin ? 'found: ' + mimeType.enabledPlugin.name + ' (' + mimeType.suffixes + ')'
                                        : 'not found');
if (mimeType && mimeType.enabledPlugin) addEventListener('load', embed);
