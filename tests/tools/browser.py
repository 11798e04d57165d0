"""A page in headless Chromium, driven through its debugging pipe."""
import json
import os
import shutil
import subprocess
import tempfile

CHROMIUM = shutil.which('chromium')
SECONDS = 120  # until the browser is up, on a busy machine
FLAGS = ('--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
         '--disable-background-networking', '--disable-component-update', '--disable-sync',
         '--remote-debugging-pipe', '--window-size=1280,900')


class Page:
    """Life: the browser runs within a with statement. `complaints` has what the page's console was
    told, and what could not be loaded."""

    def __init__(self, address):
        self.address, self.complaints, self.number = address, [], 0

    def __enter__(self):
        self.profile = tempfile.TemporaryDirectory(prefix='chromium')
        read_command, self.commands = os.pipe()
        self.answers, write_answer = os.pipe()
        self.browser = subprocess.Popen(
            ['bash', '-c', f'exec "$@" 3<&{read_command} 4>&{write_answer}', 'bash', CHROMIUM,
             *FLAGS, f'--user-data-dir={self.profile.name}'], pass_fds=(read_command, write_answer),
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(read_command)
        os.close(write_answer)
        self.input, self.session = os.fdopen(self.answers, 'rb'), None
        target = self.call('Target.createTarget', url='about:blank')['targetId']
        self.session = self.call('Target.attachToTarget', targetId=target,
                                 flatten=True)['sessionId']
        for domain in ('Runtime', 'Log', 'Page'):
            self.call(f'{domain}.enable')
        self.call('Page.navigate', url=self.address)
        self.await_event('Page.loadEventFired')
        return self

    def __exit__(self, *_):
        # Asked to, it ends its helpers before itself; killed, it leaves them writing to the profile.
        self.session = None
        self.call('Browser.close')
        self.browser.wait(SECONDS)
        os.close(self.commands)
        self.input.close()
        self.profile.cleanup()

    def receive(self):
        message = bytearray()
        while (byte := self.input.read(1)) not in (b'\0', b''):
            message += byte
        if not byte:
            raise AssertionError('the browser has ended')
        return json.loads(message)

    def note(self, message):
        if message.get('method') in ('Runtime.exceptionThrown', 'Runtime.consoleAPICalled',
                                     'Log.entryAdded'):
            self.complaints.append(message['params'])

    def call(self, method, **parameters):
        self.number += 1
        command = {'id': self.number, 'method': method, 'params': parameters}
        if self.session:
            command['sessionId'] = self.session
        os.write(self.commands, json.dumps(command).encode() + b'\0')
        while (answer := self.receive()).get('id') != self.number:
            self.note(answer)
        if 'error' in answer:
            raise AssertionError(f'{method}: {answer["error"]}')
        return answer['result']

    def await_event(self, method):
        while (message := self.receive()).get('method') != method:
            self.note(message)

    def run(self, script):
        """The value of a script, once what it set off with setTimeout is done."""
        result = self.call('Runtime.evaluate', returnByValue=True, awaitPromise=True, expression=(
            f'(() => {{ const value = (() => {{ {script} }})();'
            ' return new Promise((done) => setTimeout(() => done(value), 50)); })()'))
        if 'exceptionDetails' in result:
            raise AssertionError(result['exceptionDetails'])
        return result['result'].get('value')

    def press(self, key):
        text = key if len(key) == 1 else '\r' if key == 'Enter' else ''
        code = {'Enter': 13, 'Escape': 27}.get(key, ord(key[0].upper()))
        for kind in ('keyDown', 'keyUp'):
            self.call('Input.dispatchKeyEvent', type=kind, key=key, windowsVirtualKeyCode=code,
                      **({'text': text} if text and kind == 'keyDown' else {}))
