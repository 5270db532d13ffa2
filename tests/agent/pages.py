"""The commands on the documentation's pages."""


def commands_of(text):
    """Each command that the page shows with an answer, and the answer's lines without the empty ones."""
    commands = []
    for line in text.splitlines():
        if line.startswith("    $ "):
            commands.append((line.removeprefix("    $ "), answer := []))
        elif line.startswith("    ") and commands:
            answer.append(line.removeprefix("    "))
        elif line and commands:
            answer = []  # text: the lines after it belong to no command
    return commands


def agrees(answer, shown):
    """True when the answer matches the page, where "..." stands for any lines, or for the rest of one."""
    lines = [line.rstrip() for line in answer.splitlines() if line]
    whole = "..." not in shown
    shown = [line for line in shown if line != "..."]
    if len(lines) < len(shown) or (whole and len(lines) > len(shown)):
        return False
    return all(line.startswith(expected.removesuffix("...").rstrip()) if expected.endswith("...") else line == expected
               for line, expected in zip(lines, shown))
