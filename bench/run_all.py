"""`make bench`: every benchmark table, one after another."""

import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).parent
for script in ["machine_memory.py", "evaluation.py", "end_to_end.py", "threads.py", "gradient.py",
               "time_to_target.py"]:
    print(f"\n## {script}\n", flush=True)
    subprocess.run([sys.executable, str(HERE / script)], check=True)
