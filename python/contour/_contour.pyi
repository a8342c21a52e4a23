# The compiled module; the package's draw() and sheet() check and complete
# what is handed over here.
from typing import Any, Callable, Dict, List, Optional

def draw(models: List[tuple], occluders: List[tuple], options: Dict[str, Any],
         progress: Optional[Callable[[str, float], Any]]) -> Dict[str, Any]: ...
def save(path: str, text: str) -> None: ...
