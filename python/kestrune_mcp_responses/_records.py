"""Storage records for callers that have none of their own. The builders
read records by attribute, so any object with these attributes serves (a
dataclass, a namedtuple, an ORM row); a dict serves too, read by key."""
from dataclasses import dataclass
from typing import Any, Dict, Optional


@dataclass(frozen=True, slots=True)
class Symbol:
    """One code symbol: ``fqn`` always known, every other attribute None when unknown."""

    fqn: str
    name: Optional[str] = None
    kind: Optional[str] = None
    start_line: Optional[int] = None
    end_line: Optional[int] = None
    signature: Optional[str] = None
    docstring: Optional[str] = None
    is_export: Optional[bool] = None
    docstring_truncated: Optional[bool] = None


@dataclass(frozen=True, slots=True)
class Reference:
    """One use of a symbol at a place; of ``caller_symbol`` only "fqn" and "kind" are read."""

    file_path: Optional[str] = None
    line: Optional[int] = None
    caller_symbol: Optional[Dict[str, Any]] = None
    usage_type: Optional[str] = None


@dataclass(frozen=True, slots=True)
class ComponentInfo:
    """One architecture component with its counts, passed through as stored."""

    name: Optional[str] = None
    layer: Optional[str] = None
    path_pattern: Optional[str] = None
    file_count: Optional[int] = None
    symbol_count: Optional[int] = None
