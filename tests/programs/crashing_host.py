"""Runs the crashing host with temporary and application data in a folder of the test's own."""
import os
import subprocess


def start(wine, host, way, folder, *options):
    # Wine takes these variables from nobody but a program of its own; a batch file needs no quoting
    # that survives the way through two systems' shells.
    windows_folder = 'Z:' + folder.replace('/', '\\')
    batch = os.path.join(folder, 'run.bat')
    with open(batch, 'w', encoding='ascii', newline='\r\n') as file:
        for name in ('TMP', 'LOCALAPPDATA'):
            file.write(f'@set {name}={windows_folder}\n')
        file.write(f'@"Z:{os.path.abspath(host)}" {way} 127.0.0.1 9 --keep-files --no-restart '
                   f'--auto-report {" ".join(options)}\n')
    return subprocess.Popen([wine, 'cmd', '/c', windows_folder + '\\run.bat'],
                            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)
