"""The commands that pages of the documentation show."""


def commands_of(text):
    """Each command that is shown with its answer, and the answer's lines without the empty ones."""
    commands = []
    for line in text.splitlines():
        if line.startswith("    $ "):
            commands.append((line.removeprefix("    $ "), answer := []))
        elif line.startswith("    ") and commands:
            answer.append(line.removeprefix("    "))
        elif line and commands:
            answer = []  # text: what follows it belongs to no command
    return commands


def agrees(answer, shown):
    """Whether the answer begins as it is shown: "..." in the place of lines, or at the end of one, stands for more."""
    lines = [line.rstrip() for line in answer.splitlines() if line]
    whole = "..." not in shown
    shown = [line for line in shown if line != "..."]
    if len(lines) < len(shown) or (whole and len(lines) > len(shown)):
        return False
    return all(line.startswith(expected.removesuffix("...").rstrip()) if expected.endswith("...") else line == expected
               for line, expected in zip(lines, shown))
