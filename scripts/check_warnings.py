"""check_warnings.py BUILD_DIR FOLDER: compiles what BUILD_DIR/compile_commands.json lists from
FOLDER, as far as the compiler's front end goes and with warnings as errors. Prints each diagnostic
once, however many files include the header that it is about. The exit status is 1 if there was one.

A source that several programs compile is compiled once, unless it names a macro that they define
differently: the front end's work is the same then.
"""
import concurrent.futures
import json
import os
import re
import shlex
import subprocess
import sys

DIAGNOSTIC = re.compile(r'^(\S[^:\n]*):(\d+):(\d+:)? (fatal )?(error|warning): ', re.MULTILINE)


def front_end_command(entry):
    """The entry's command without what it writes."""
    words = shlex.split(entry['command'])
    at = words.index('-o')
    return tuple(words[:at] + words[at + 2:] + ['-fsyntax-only', '-Werror'])


def what_matters(entry):
    """The file, and those of the command's macros that it names."""
    with open(entry['file'], encoding='utf-8') as file:
        words_of_file = set(re.findall(r'\w+', file.read()))
    macros = (word for word in shlex.split(entry['command']) if word.startswith('-D'))
    return (entry['file'],
            *(macro for macro in macros if macro[2:].split('=')[0] in words_of_file))


def check(job):
    folder, command = job
    run = subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                         text=True, errors='replace', check=False)
    lines = [line for line in run.stdout.splitlines() if DIAGNOSTIC.match(line)]
    if run.returncode != 0 and not lines:
        lines = [f'{command[-3]}: {command[0]} failed: {run.stdout.strip()}']
    return lines


def main():
    build, folder = sys.argv[1:]
    with open(os.path.join(build, 'compile_commands.json'), encoding='utf-8') as file:
        entries = json.load(file)
    prefix = os.path.join(os.path.abspath(folder), '')
    jobs = {what_matters(entry): (entry['directory'], front_end_command(entry))
            for entry in entries if entry['file'].startswith(prefix)}
    if not jobs:
        sys.exit(f'check_warnings: {build} compiles nothing from {folder}')
    seen = {}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for lines in pool.map(check, jobs.values()):
            for line in lines:
                if line not in seen:
                    print(line.replace(prefix, ''), flush=True)
                seen[line] = None
    sys.exit(1 if seen else 0)


if __name__ == '__main__':
    main()
