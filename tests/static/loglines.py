#!/usr/bin/env python3
"""docs/log-lines.md has every line that control/ and engine/ print, and no line that they do not.

Usage: loglines.py ROOT [--list]; with --list what was found in the sources, instead.
"""
import functools
import pathlib
import re
import sys

from cppsource import Source
from logtexts import HELPER_FILES, HELPER_PARTS, HELPERS, WILD, Texts

DOCUMENT = "docs/log-lines.md"
FOREIGN_KINDS = {"library", "command"}  # lines that are made elsewhere
# Texts of others that are passed on; they stand in the document as "library" (file: how many such prints, what).
PASSED_ON = {"control/capture/analysisfile_audio.cpp": (1, "the kernel's text about the sound card")}

# Every other way to print. A use that is not in ALLOWED is a fault: print through the helpers, or
# say there why nothing unknown is printed.
RAW = set("""printf fprintf vprintf vfprintf dprintf vdprintf puts fputs putchar putc fputc fwrite
    cout cerr clog wcout wcerr wclog stdout stderr STDOUT_FILENO STDERR_FILENO perror psignal psiginfo
    syslog vsyslog warnx vwarnx errx verrx writev pwrite popen execl execlp execle execv execvp execve
    posix_spawn posix_spawnp backtrace_symbols_fd ofstream SYS_write composeLine
    snd_pcm_dump snd_pcm_dump_setup snd_pcm_hw_params_dump snd_pcm_sw_params_dump snd_pcm_status_dump
    snd_output_stdio_attach snd_output_stdio_open av_log av_dump_format
    mpp_show_support_format mpp_show_color_format""".split())
RAW_CALLS = {"write", "system", "assert", "error", "warn", "err", "verr", "vwarn"}  # common words
RAW_LITERALS = ("/dev/std", "/dev/tty", "/dev/console", "/dev/kmsg", "/proc/self/fd", "/dev/fd")
THE_HELPERS = "the helpers themselves"
LIBRARY = "a library's lines, in the document"
ALLOWED = {
    ("control/task/logline.cpp", "fwrite"): (1, THE_HELPERS),
    ("control/task/logline.cpp", "stdout"): (1, THE_HELPERS),
    ("control/task/logline.cpp", "stderr"): (1, THE_HELPERS),
    ("control/task/logline.h", "composeLine"): (3, THE_HELPERS),
    ("control/decode/mpplog.h", "printf"): (2, "the compiler's check of formats"),
    ("control/task/shell.cpp", "stdout"): (1, "flushed before a command"),
    ("control/task/shell.cpp", "system"): (1, "each command is looked up in the document"),
    ("control/task/taskdiagnostics.cpp", "cout"): (3, "the form of numbers, nothing is printed"),
    ("control/audio/openpcm.cpp", "snd_output_stdio_attach"): (1, LIBRARY),
    ("control/audio/openpcm.cpp", "stderr"): (1, LIBRARY),
    ("control/audio/openpcm.cpp", "snd_pcm_dump"): (1, LIBRARY),
    ("control/capture/capturemedia.cpp", "assert"): (1, LIBRARY),
    ("control/camera/obsbot_remote.cpp", "write"): (1, "to the receiver's node"),
    ("control/camera/obsbot_presets.cpp", "write"): (1, "to the preset file"),
    ("control/display/capturevideofile.cpp", "fwrite"): (1, "to the file of frames"),
    ("engine/mpp/log.cpp", "write"): (4, LIBRARY),
    ("engine/mpp/log.cpp", "fwrite"): (1, LIBRARY),
    ("engine/mpp/log.cpp", "stderr"): (1, LIBRARY),
    ("engine/mpp/mpi.cpp", "fputs"): (2, "read like a helper"),
    ("engine/mpp/mpi.cpp", "stderr"): (2, "read like a helper"),
    ("engine/mpp/mpi.cpp", "mpp_show_support_format"): (1, "its definition"),
    ("engine/mpp/mpi.cpp", "mpp_show_color_format"): (1, "its definition"),
    ("engine/mpp/include/rockchip/rk_mpi.h", "mpp_show_support_format"): (1, "its declaration"),
    ("engine/mpp/include/rockchip/rk_mpi.h", "mpp_show_color_format"): (1, "its declaration"),
}


@functools.lru_cache(maxsize=None)
def raw_lines(source):
    """Where a file prints without the helpers: word -> lines."""
    found, tokens = {}, source.tokens
    for index, token in enumerate(tokens):
        called = index + 1 < len(tokens) and tokens[index + 1].text == "("
        method = index > 0 and tokens[index - 1].text in (".", "->")
        if token.kind == "id" and (token.text in RAW or token.text in RAW_CALLS and called and not method):
            found.setdefault(token.text, []).append(token.line)
        if token.kind == "str" and any(path in token.text for path in RAW_LITERALS):
            found.setdefault(token.text, []).append(token.line)
    return found


def check_raw(sources, faults):
    used = set()
    for source in sources:
        for word, lines in raw_lines(source).items():
            used.add((source.name, word))
            known = ALLOWED.get((source.name, word), (0, ""))[0]
            if len(lines) != known:
                faults.append(f"{source.name}:{lines[-1]}: '{word}' stands here {len(lines)} times, "
                              f"{known} are known; print with control/task/logline.h, or tell "
                              "tests/static/loglines.py why nothing unknown is printed")
        if source.name in HELPER_FILES:
            for function in source.functions:
                if function.name not in HELPERS | HELPER_PARTS:
                    faults.append(f"{source.name}: '{function.name}' is a new helper; tell "
                                  "tests/static/logtexts.py how its texts are made")
    for name, word in ALLOWED.keys() - used:
        faults.append(f"tests/static/loglines.py: '{word}' is not used in {name} any more")


class Entry:
    def __init__(self, cells, line):
        self.pattern, self.kind, self.line = cells[0][1:-1], cells[1], line


def read_document(document):
    """Entries, commands (with their lines) and kinds."""
    entries, commands, kinds, table = [], {}, set(), None
    for number, text in enumerate(document.splitlines(), 1):
        if not text.startswith("|"):
            table = None
            continue
        cells = [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", text)[1:-1]]
        if table is None:
            table = cells[0]
        elif set(text) <= set("|-: "):
            continue
        elif table == "kind":
            kinds.add(cells[0])
        elif table == "line":
            entries.append(Entry(cells + [""], number))
        elif table == "command":
            commands[cells[0].strip("`")] = number
    return entries, commands, kinds


def as_regex(pattern):
    return "(.*?)".join(re.escape(piece) for piece in pattern.split(WILD))


def is_instance(entry, text, literals):
    """Whether an entry is a printed text with literals of the sources where it varies."""
    found = re.fullmatch(as_regex(text), entry, re.S)
    filled = [piece for group in found.groups() for piece in group.split(WILD) if piece] if found else []
    return bool(found) and all(any(piece in literal for literal in literals) for piece in filled)


def check_lines(prints, entries, texts, faults):
    own = [entry for entry in entries if entry.kind not in FOREIGN_KINDS]
    patterns = {entry.pattern for entry in own}
    for line in prints:
        if not line.text.strip(WILD):
            name = line.place.split(":")[0]
            places = {p.place for p in prints if not p.text.strip(WILD) and p.place.startswith(name)}
            if len(places) != PASSED_ON.get(name, (0, ""))[0]:
                faults.append(f"{line.place}: no text to be seen in what is printed here")
        elif line.whole and line.text not in patterns and line.general not in patterns:
            faults.append(f"{line.place}: '{line.text}' is not in {DOCUMENT}")
        elif not line.whole and not any(re.search(as_regex(line.text), p) for p in patterns):
            faults.append(f"{line.place}: '{line.text}' is in no line of {DOCUMENT}")
    wholes = {text for line in prints if line.whole for text in (line.text, line.general)}
    wholes = {text for text in wholes if text.strip(WILD)}
    for entry in own:
        if entry.pattern not in wholes and not any(
                is_instance(entry.pattern, text, texts.literals) for text in wholes):
            faults.append(f"{DOCUMENT}:{entry.line}: '{entry.pattern}' is printed nowhere")


def check_commands(texts, entries, commands, faults):
    printed = {entry.pattern for entry in entries if entry.kind == "command"}
    run = set()
    for command, place in texts.commands():
        run.add(command)
        if command not in commands:
            faults.append(f"{place}: the command '{command}' is not in {DOCUMENT}")
        word, _, rest = command.partition(" ")
        if word == "echo" and ">" not in rest and rest not in printed:
            faults.append(f"{place}: '{rest}' is no command's line in {DOCUMENT}")
    for command in commands.keys() - run:
        faults.append(f"{DOCUMENT}:{commands[command]}: the command '{command}' is run nowhere")


def check(sources, document):
    """Faults, and a word on what was compared."""
    texts = Texts(sources)
    prints = list(texts.prints()) + list(texts.parts())
    entries, commands, kinds = read_document(document)
    faults = [f"{DOCUMENT}:{entry.line}: unknown kind '{entry.kind}'"
              for entry in entries if entry.kind not in kinds]
    check_raw(sources, faults)
    check_lines(prints, entries, texts, faults)
    check_commands(texts, entries, commands, faults)
    summary = f"log lines: {len({line.text for line in prints})} texts, {len(entries)} entries"
    return list(dict.fromkeys(faults)), summary


def sources_of(root):
    paths = [path for room in ("control", "engine") for path in sorted((root / room).rglob("*"))
             if path.suffix in (".h", ".hpp", ".inc", ".inl", ".c", ".cc", ".cpp")]
    return [Source(path.relative_to(root).as_posix(), path.read_text()) for path in paths]


def main():
    root = pathlib.Path(sys.argv[1])
    sources = sources_of(root)
    if sys.argv[2:] == ["--list"]:
        texts = Texts(sources)
        prints = list(texts.prints()) + list(texts.parts())
        print("\n".join(sorted(f"{line.text}\t{line.place}" for line in prints)))
        print("\n".join(f"command {command}\t{place}" for command, place in texts.commands()))
        return 0
    faults, summary = check(sources, (root / DOCUMENT).read_text())
    print("\n".join(faults) or summary)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
