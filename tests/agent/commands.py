"""The calls that the dome's services received, as text for a table of cases."""


def calls(desk, *services):
    """ "SERVICE CALL ARGUMENT ..." for each call received, of the given services or of all."""
    return [
        " ".join([call["service"], call["call"], *(_text(argument) for argument in call["args"])])
        for call in desk.calls()
        if not services or call["service"] in services
    ]


def _text(argument):
    if isinstance(argument, bool):
        return str(argument).lower()
    if isinstance(argument, float):
        return f"{argument:.6g}"
    return str(argument)
