"""A service that ends during its first call, before it answers: dying_service.py BUS-SOCKET NAME"""

import os
import signal
import sys

from busclient import Service

service = Service(*sys.argv[1:])
print("ready", flush=True)
service.await_call()
os.kill(os.getpid(), signal.SIGKILL)
